// The parsers of the test configuration file's sections, and the permissions to write its elements.
#include <cstdint>
#include <iterator>
#include <string_view>

#include "platform/gpioctrl.h"
#include "userapps/FTM/FTM_Apis.h"
#include "userapps/FTM/FTM_App.h"
#include "userapps/FTM/FTM_Tags.h"
#include "userapps/FTM/FTM_Text.h"

namespace {

using namespace std::string_view_literals;

struct LedTag {
  std::string_view name;
  int (*isWritable)();
  unsigned int point;
};

// Evaluated by the compiler, which refuses a name that the table of LEDs lacks.
consteval unsigned int ledPoint(std::string_view name) {
  const ST_FTM_LED* led = std::begin(stFtmLeds);
  while (led->pszName != name)
    ++led;
  return static_cast<unsigned int>(led->ePoint);
}

constexpr LedTag ledTags[] = {
    {"SESSION_LED", Is_SESSION_LED_WrEnb, ledPoint("SESSION_LED")},
    {"READY_GREEN_LED", Is_READY_GREEN_LED_WrEnb, ledPoint("READY_GREEN_LED")},
    {"READY_RED_LED", Is_READY_RED_LED_WrEnb, ledPoint("READY_RED_LED")},
    {"ETHER_LED", Is_ETHER_LED_WrEnb, ledPoint("ETHER_LED")},
    {"USB_LED", Is_USB_LED_WrEnb, ledPoint("USB_LED")},
    {"WPS_LED", Is_WPS_LED_WrEnb, ledPoint("WPS_LED")},
    {"ALL_LEDS", Is_ALL_LEDS_WrEnb, allLedsPoint},
};

constexpr int singleLedPoints = 256;

struct PortSpeed {
  std::string_view text;
  unsigned char speed;
};
constexpr PortSpeed portSpeeds[] = {{"AUTO", 0}, {"10", 10}, {"100", 100}};

// A setting of the transceiver that the store keeps.
struct StoredSetting {
  std::string_view tag;
  int (*isWritable)();
  const char* column;
  const std::string_view* values;
  std::size_t valueCount;
};
constexpr const char* transceiverTable = "XcvrTable";
constexpr std::string_view hybridModes[] = {"AUTO", "HYBRID_1", "HYBRID_2", "HYBRID_3", "HYBRID_4"};
constexpr std::string_view psdModes[] = {"AUTO", "ON", "OFF"};
constexpr StoredSetting multiHybrid = {"MULTI_MODE", Is_MULTI_MODE_WrEnb, "MultiHybrid", hybridModes,
                                       std::size(hybridModes)};
constexpr StoredSetting psdSetting = {"PSD_MODE", Is_PSD_MODE_WrEnb, "Psd", psdModes, std::size(psdModes)};

int fail(const char* message) {
  FTM_FlgErrorTFTP(0, message, 0);
  return -1;
}

int failWithSlot(const char* message, int* piretval) {
  *piretval = -1;
  return fail(message);
}

bool hasElements(const ST_XML_ELEMENT* element) {
  return GetElements(element) != nullptr && *GetElements(element) != nullptr;
}

// Runs `parse` for each child in order, up to the first that fails.
template <typename Parse>
int forEachChild(const ST_XML_ELEMENT* section, Parse parse) {
  for (ST_XML_ELEMENT** child = GetElements(section); child != nullptr && *child != nullptr; ++child)
    if (parse(*child) == -1)
      return -1;
  return 0;
}

bool isText(const char* text, std::string_view expected) {
  return text != nullptr && text == expected;
}

bool isOnOrOff(const char* text) {
  return isText(text, "ON") || isText(text, "OFF");
}

// The first two attributes by position, whatever their names.
struct FirstAttributes {
  explicit FirstAttributes(const ST_XML_ELEMENT* element)
      : name0(GetAttrName(element, 0)), value0(GetAttrVal(element, 0)) {
    if (!isPresent(name0)) // the slots after the end of the list are not there
      return;
    name1 = GetAttrName(element, 1);
    value1 = GetAttrVal(element, 1);
  }

  static bool isPresent(char** slot) { return slot != nullptr && *slot != nullptr; }
  static const char* text(char** slot) { return isPresent(slot) ? *slot : nullptr; }

  char** name0;
  char** value0;
  char** name1 = nullptr;
  char** value1 = nullptr;
};

bool areAllPresent(char** first, char** second, char** third, char** fourth) {
  return FirstAttributes::isPresent(first) && FirstAttributes::isPresent(second) && FirstAttributes::isPresent(third) &&
         FirstAttributes::isPresent(fourth);
}

// A point is kept in 16 bits, so that 65539 is point 3. No text is point 0.
std::uint16_t pointNumber(const char* text) {
  return text == nullptr ? 0 : static_cast<std::uint16_t>(decimalValue(text));
}

int writeLed(const LedTag& led, const char* text, int* piretval) {
  if (led.isWritable() == 0)
    return failWithSlot(szWrTCFail, piretval);
  if (!isOnOrOff(text))
    return failWithSlot(szTstUnsp, piretval);
  *piretval = ledTest(led.point, isText(text, "ON") ? 1 : 0);
  // All LEDs at once end the section when they fail; a single one does not.
  return led.point == allLedsPoint && *piretval != 0 ? fail(szWrFail) : 0;
}

int parseLedChild(ST_XML_ELEMENT* child, int* piretval) {
  for (const LedTag& led : ledTags)
    if (led.name == GetTag(child))
      return writeLed(led, GetTextBody(child), piretval);
  if (GetTag(child) == "SINGLE_LED"sv)
    return FTM_ParseTagSingleLed(nullptr, child, piretval);
  return fail(szTstUnsp);
}

int parseReadyStatus(const char* text) {
  if (Is_READY_STATUS_WrEnb() == 0)
    return fail(szWrTCFail);
  if (isText(text, "READY"))
    FtmActionTPutREADY();
  else if (isText(text, "NOT_READY"))
    FtmActionTPutNOT_READY();
  else
    return fail(szTstUnsp);
  return 0;
}

int parseAutoMode(const char* text, int* piretval) {
  if (Is_AUTO_MODE_WrEnb() == 0)
    return fail(szWrTCFail);
  if (isText(text, "AUTO"))
    return failWithSlot(szTstUnsp, piretval);
  if (!isText(text, "INNER") && !isText(text, "OUTER"))
    return fail(szTstUnsp);
  ledTest(eDSLPair, isText(text, "OUTER") ? 1 : 0);
  return 0;
}

int parsePortSpeed(const char* text, int* piretval) {
  *piretval = 0;
  if (Is_ETHER_PORT_SPD_WrEnb() == 0)
    return fail(szWrTCFail);
  for (const PortSpeed& speed : portSpeeds)
    if (speed.text == text)
      return FtmActionETHER_PORT_SPD(speed.speed);
  return fail(szTstUnsp);
}

int storeSetting(const StoredSetting& setting, const char* text) {
  if (setting.isWritable() == 0)
    return fail(szWrTCFail);
  for (std::size_t i = 0; i < setting.valueCount; ++i)
    if (setting.values[i] == text)
      return FTM_CMwrite_var(transceiverTable, setting.column, 0, text) == 0 ? 0 : fail(szWrFail);
  return fail(szTstUnsp);
}

int parseStoredSetting(const StoredSetting& setting, const ST_XML_ELEMENT* section) {
  return forEachChild(section, [&](const ST_XML_ELEMENT* child) {
    return setting.tag == GetTag(child) ? storeSetting(setting, GetTextBody(child)) : 0;
  });
}

} // namespace

int FTM_ParseTagLED(ST_XML_ELEMENT* pXmlLED, int* piretval) {
  int result = 0;
  const int stopped = forEachChild(pXmlLED, [&](ST_XML_ELEMENT* child) {
    if (parseLedChild(child, piretval) == -1)
      return -1;
    // A failed child fails the section, and the children after it are still carried out.
    if (*piretval != 0)
      result = fail(szWrFail);
    if (result == 0)
      unFtmState.stbF.bLedTst = 1;
    return 0;
  });
  return stopped == -1 ? -1 : result;
}

int FTM_ParseTagSingleLed(void*, ST_XML_ELEMENT* pXmlLeds, int* piretval) {
  const FirstAttributes attributes(pXmlLeds);
  const std::uint16_t point = pointNumber(FirstAttributes::text(attributes.value0));
  // Points above the board's own pass whatever the mode says, and then drive nothing.
  const bool isModeRefused = point < eMaxUserIOPoint && !isOnOrOff(FirstAttributes::text(attributes.value1));
  if (isModeRefused || point >= singleLedPoints)
    return failWithSlot(szTstUnsp, piretval);
  unFtmState.stbF.bLedTst = 1;
  return FtmSingleLedTest(attributes.name0, attributes.name1, attributes.value0, attributes.value1);
}

int FtmSingleLedTest(char** ppAtbName0, char** ppAtbName1, char** ppAtbVal0, char** ppAtbVal1) {
  ST_XML_ELEMENT* shown = GetElmtPtr(TestModeCfgTree(), "TEST_CONFIG", "LED", "SINGLE_LED");
  if (shown == nullptr)
    return fail(szNoCmdFnd);
  if (!areAllPresent(ppAtbName0, ppAtbName1, ppAtbVal0, ppAtbVal1))
    return 0;
  SetAttrValue(shown, *ppAtbName0, *ppAtbVal0);
  SetAttrValue(shown, *ppAtbName1, *ppAtbVal1);
  // The driver's answer is not looked at: the station sees the LED itself.
  if (isOnOrOff(*ppAtbVal1))
    ledTest(pointNumber(*ppAtbVal0), isText(*ppAtbVal1, "ON") ? 1 : 0);
  return 0;
}

int FTM_ParseTagTHRPUT(ST_XML_ELEMENT* pXmlTHRPUT, int* piretval) {
  const FirstAttributes attributes(pXmlTHRPUT);
  const int children = forEachChild(pXmlTHRPUT, [](const ST_XML_ELEMENT* child) {
    return GetTag(child) == "READY_STATUS"sv ? parseReadyStatus(GetTextBody(child)) : 0;
  });
  if (children == -1)
    return -1;
  unFtmState.stbF.bThrPutTst = 1;
  return FtmThroughPutTest(attributes.name0, attributes.name1, attributes.value0, attributes.value1, piretval);
}

int FtmThroughPutTest(char** ppAtbName0, char** ppAtbName1, char** ppAtbVal0, char** ppAtbVal1, int* piretval) {
  ST_XML_ELEMENT* shown = GetElmtPtr(TestModeCfgTree(), "TEST_CONFIG", "THROUGHPUT", nullptr);
  if (shown == nullptr)
    return fail(szNoCmdFnd);
  if (!areAllPresent(ppAtbName0, ppAtbName1, ppAtbVal0, ppAtbVal1))
    return 0;
  SetAttrValue(shown, *ppAtbName0, *ppAtbVal0);
  SetAttrValue(shown, *ppAtbName1, *ppAtbVal1);
  *piretval = ftm_ChangeVpiVci(*ppAtbVal0, *ppAtbVal1);
  return *piretval == 0 ? 0 : -1;
}

int FTM_ParseTagAutoPair(ST_XML_ELEMENT* pXmlRSTSW, int* piretval) {
  if (!hasElements(pXmlRSTSW))
    return 0;
  const int result = forEachChild(pXmlRSTSW, [piretval](const ST_XML_ELEMENT* child) {
    return GetTag(child) == "AUTO_MODE"sv ? parseAutoMode(GetTextBody(child), piretval) : 0;
  });
  if (result == 0)
    unFtmState.stbF.bAutoPrTst = 1;
  return result;
}

int FTM_ParseTagEtherPort(ST_XML_ELEMENT* pXmlETHER_PORT, int* piretval) {
  return forEachChild(pXmlETHER_PORT, [piretval](const ST_XML_ELEMENT* child) {
    return GetTag(child) == "ETHER_PORT_SPD"sv ? parsePortSpeed(GetTextBody(child), piretval) : 0;
  });
}

int FTM_ParseTagMultiHybrid(ST_XML_ELEMENT* pXmlRSTSW, int*) {
  if (!hasElements(pXmlRSTSW))
    return 0;
  const int result = parseStoredSetting(multiHybrid, pXmlRSTSW);
  if (result == 0)
    unFtmState.stbF.bMulHybTst = 1;
  return result;
}

int FTM_ParseTagPsdSetting(ST_XML_ELEMENT* pXmlPSD_SETTING, int*) {
  return parseStoredSetting(psdSetting, pXmlPSD_SETTING);
}

int FTM_ParseTagRSTSW(ST_XML_ELEMENT* pXmlRSTSW) {
  const int result = forEachChild(pXmlRSTSW, [](const ST_XML_ELEMENT* child) {
    return GetTag(child) == "RESET_SW_STATUS"sv && Is_RESET_SW_STATUS_WrEnb() == 0 ? fail(szWrTCFail) : 0;
  });
  if (result == 0)
    unFtmState.stbF.bRstSwTst = 1;
  return result;
}

int Is_SESSION_LED_WrEnb() {
  return 0;
}

int Is_READY_STATUS_WrEnb() {
  return 0;
}

int Is_RESET_SW_STATUS_WrEnb() {
  return 0;
}

int Is_WPS_SW_STATUS_WrEnb() {
  return 0;
}

int Is_ETHER_PORT_SPD_WrEnb() {
  return 0;
}

int Is_READY_GREEN_LED_WrEnb() {
  return 1;
}

int Is_READY_RED_LED_WrEnb() {
  return 1;
}

int Is_ETHER_LED_WrEnb() {
  return 1;
}

int Is_USB_LED_WrEnb() {
  return 1;
}

int Is_WPS_LED_WrEnb() {
  return 1;
}

int Is_ALL_LEDS_WrEnb() {
  return 1;
}

int Is_MULTI_MODE_WrEnb() {
  return 1;
}

int Is_AUTO_MODE_WrEnb() {
  return 1;
}

int Is_PSD_MODE_WrEnb() {
  return 1;
}

int Is_POWER_LED_WrEnb() {
  return 1;
}

int Is_WAN_LED_WrEnb() {
  return 1;
}

int Is_INTERNET_LED_WrEnb() {
  return 1;
}

int Is_LAN_LED_WrEnb() {
  return 1;
}

int Is_WIRELESS_LED_WrEnb() {
  return 1;
}
