#include <gmock/gmock.h>

#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "tests/unit/config_file.h"
#include "tests/unit/device_lines.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Lines = std::vector<std::string>;

Lines refreshes; ///< what a read has refreshed, in order
int reportedReady = 1;

} // namespace

// The linker puts these in front of the service's functions.
#define NOTE_REFRESH(symbol, refresh, parameters, arguments)                                                           \
  extern "C" int __real_##symbol parameters;                                                                           \
  extern "C" int __wrap_##symbol parameters;                                                                           \
  extern "C" int __wrap_##symbol parameters {                                                                          \
    refreshes.emplace_back(refresh);                                                                                   \
    return __real_##symbol arguments;                                                                                  \
  }
NOTE_REFRESH(_Z19XMLS_SetAttrValueCMP14ST_XML_ELEMENTi, "circuit", (ST_XML_ELEMENT * element, int range),
             (element, range))
NOTE_REFRESH(_Z17FtmUpdPSD_SETTINGv, "PSD", (), ())
NOTE_REFRESH(_Z18TRANCVR_FtmApStatsPiS_, "pair", (int* pair, int* mode), (pair, mode))
NOTE_REFRESH(_Z17FtmUpdateWirelessv, "radio", (), ())
NOTE_REFRESH(_Z12FtmUpdateUSBv, "USB", (), ())

extern "C" int __wrap__Z20WANM_FTMReadyForDatav();
extern "C" int __wrap__Z20WANM_FTMReadyForDatav() {
  return reportedReady;
}

extern "C" void __real__Z20FtmUpdLedsAndButtonsv();
extern "C" void __wrap__Z20FtmUpdLedsAndButtonsv();
extern "C" void __wrap__Z20FtmUpdLedsAndButtonsv() {
  refreshes.emplace_back("LEDs and buttons");
  __real__Z20FtmUpdLedsAndButtonsv();
}

namespace {

Lines pointWritten(int point, int data) {
  return {gpioRequest(GPIOCTRL_ENTERFTM, point, data), gpioRequest(GPIOCTRL_WRITEIO, point, data)};
}

// The tree.

struct TemplateElement {
  const char* path;
  const char* attributes; ///< name=value, in order
  const char* text;
};

constexpr TemplateElement templateElements[] = {
    {"LED", "", ""},
    {"LED/SESSION_LED", "RW=F", "UNDEFINE"},
    {"LED/READY_GREEN_LED", "RW=T", "ON"},
    {"LED/READY_RED_LED", "RW=T", "ON"},
    {"LED/ETHER_LED", "RW=T", "ON"},
    {"LED/USB_LED", "RW=T", "ON"},
    {"LED/WPS_LED", "RW=T", "ON"},
    {"LED/ALL_LEDS", "RW=T", "OFF"},
    {"LED/SINGLE_LED", "NUM=0 MODE=OFF", ""},
    {"THROUGHPUT", "VPI=0 VCI=35", ""},
    {"THROUGHPUT/READY_STATUS", "RW=F", "READY"},
    {"ETHER_PORT", "", ""},
    {"ETHER_PORT/ETHER_PORT_SPD", "RW=F", "UNKNOWN"},
    {"AUTO_PAIR", "", ""},
    {"AUTO_PAIR/AUTO_MODE", "RW=T", "UNKNOWN"},
    {"BCOM_WIRELESS", "", ""},
    {"BCOM_WIRELESS/SSID", "", "NA"},
    {"BCOM_WIRELESS/CHANNEL", "", "NA"},
    {"BCOM_WIRELESS/MAC_ADDR", "", "NA"},
    {"BCOM_WIRELESS/DOMAIN", "", "NA"},
    {"RESET_SWITCH", "", ""},
    {"RESET_SWITCH/RESET_SW_STATUS", "RW=F", "OPEN"},
    {"WPS_SWITCH", "", ""},
    {"WPS_SWITCH/WPS_SW_STATUS", "RW=F", "OPEN"},
    {"USB", "", ""},
    {"USB/HOST", "", "NA"},
    {"USB/CHANNEL", "", "NA"},
    {"USB/ID", "", "NA"},
    {"USB/LUN", "", "NA"},
    {"USB/VENDOR", "", "NA"},
    {"USB/MODEL", "", "NA"},
    {"USB/REV", "", "NA"},
    {"USB/TYPE", "", "NA"},
    {"USB/ANSI_SCSI_REV", "", "NA"},
};

std::string attributesOf(const ST_XML_ELEMENT& element) {
  std::string text;
  for (int i = 0; element.m_attrnames != nullptr && element.m_attrnames[i] != nullptr; ++i)
    text += (i == 0 ? "" : " ") + std::string(element.m_attrnames[i]) + "=" + element.m_attrvalues[i];
  return text;
}

void describe(const ST_XML_ELEMENT& parent, const std::string& path, Lines& lines) {
  for (ST_XML_ELEMENT** child = GetElements(&parent); child != nullptr && *child != nullptr; ++child) {
    const std::string childPath = path + GetTag(*child);
    lines.push_back(childPath + " [" + attributesOf(**child) + "] " + GetTextBody(*child));
    describe(**child, childPath + "/", lines);
  }
}

class TestModeCfg : public ConfigFile {};

TEST_F(TestModeCfg, TemplateHoldsEveryElementInItsOrder) {
  const XmlTree tree(CreateTestModeCfgXml());
  Lines actual;
  describe(*GetElement(tree.get(), "TEST_CONFIG"), "", actual);
  Lines expected;
  for (const TemplateElement& element : templateElements)
    expected.push_back(std::string(element.path) + " [" + element.attributes + "] " + element.text);
  EXPECT_EQ(actual, expected);
}

TEST_F(TestModeCfg, TemplateBeginsWithTheDeclaration) {
  const XmlTree tree(CreateTestModeCfgXml());
  const ST_XML_ELEMENT* declaration = GetElements(tree.get())[0];
  EXPECT_STREQ(GetTag(declaration), "xml");
  EXPECT_EQ(attributesOf(*declaration), "version=1.0 encoding=UTF-8");
  EXPECT_STREQ(GetTag(GetElements(tree.get())[1]), "TEST_CONFIG");
  EXPECT_EQ(GetElements(tree.get())[2], nullptr);
}

TEST_F(TestModeCfg, TreeIsBuiltOnceAndKept) {
  const ST_XML_ELEMENT* tree = TestModeCfgTree();
  readBack();
  answerTo("<LED/>");
  EXPECT_EQ(TestModeCfgTree(), tree);
}

TEST_F(TestModeCfg, PathIsFollowedUntilItsFirstNull) {
  ST_XML_ELEMENT* tree = TestModeCfgTree();
  EXPECT_STREQ(GetTag(GetElmtPtr(tree, "TEST_CONFIG", nullptr, "LED")), "TEST_CONFIG");
  EXPECT_STREQ(GetTag(GetElmtPtr(tree, "TEST_CONFIG", "LED", nullptr)), "LED");
  EXPECT_STREQ(GetTag(GetElmtPtr(tree, "TEST_CONFIG", "LED", "USB_LED")), "USB_LED");
  EXPECT_EQ(recordedMessage(), "");
}

TEST_F(TestModeCfg, PathThatLeadsNowhereIsAnInvalidFile) {
  ST_XML_ELEMENT* tree = TestModeCfgTree();
  const std::vector<std::vector<const char*>> paths = {{nullptr, "LED", "USB_LED"},
                                                       {"LED", nullptr, nullptr},
                                                       {"TEST_CONFIG", "MOCA", nullptr},
                                                       {"TEST_CONFIG", "MOCA", "USB_LED"},
                                                       {"TEST_CONFIG", "LED", "usb_led"}};
  for (const auto& path : paths) {
    FTM_ClrErrorTFTP();
    EXPECT_EQ(GetElmtPtr(tree, path[0], path[1], path[2]), nullptr);
    EXPECT_EQ(recordedMessage(), "Xml File InValid");
  }
  FTM_ClrErrorTFTP();
  EXPECT_EQ(GetElmtPtr(nullptr, "TEST_CONFIG", nullptr, nullptr), nullptr);
  EXPECT_EQ(recordedMessage(), "Xml File InValid");
}

// Reading.

TEST_F(TestModeCfg, ReadWithNoTestActiveShowsAutoAndNotReady) {
  EXPECT_EQ(readBack("AUTO_PAIR/AUTO_MODE"), "AUTO");
  EXPECT_EQ(readBack("THROUGHPUT/READY_STATUS"), "NOT_READY");
}

TEST_F(TestModeCfg, ReadShowsThePairWhileATestIsActive) {
  for (const auto& [state, text] : {std::pair(0U, "INNER"), std::pair(1U, "OUTER")}) {
    ledTest(eDSLPair, state);
    unFtmState.usWd = wirelessTestMask;
    EXPECT_EQ(readBack("AUTO_PAIR/AUTO_MODE"), text);
    unFtmState.usWd = 0;
    EXPECT_EQ(readBack("AUTO_PAIR/AUTO_MODE"), "AUTO");
  }
}

TEST_F(TestModeCfg, ReadShowsAnUnreadablePairAsUnknown) {
  unFtmState.usWd = ledTestMask;
  unit().setFault(noGpio, true);
  EXPECT_EQ(readBack("AUTO_PAIR/AUTO_MODE"), "UNKNOWN");
}

TEST_F(TestModeCfg, ReadShowsReadyOnlyDuringTheThroughputTest) {
  unFtmState.usWd = 0xFFFF & ~throughputTestMask;
  EXPECT_EQ(readBack("THROUGHPUT/READY_STATUS"), "NOT_READY");
  unFtmState.usWd = throughputTestMask;
  EXPECT_EQ(readBack("THROUGHPUT/READY_STATUS"), "READY");
}

TEST_F(TestModeCfg, ReadShowsALineThatIsNotReadyForDataAsNotReady) {
  unFtmState.usWd = throughputTestMask;
  reportedReady = 0;
  const std::string status = readBack("THROUGHPUT/READY_STATUS");
  reportedReady = 1;
  EXPECT_EQ(status, "NOT_READY");
}

TEST_F(TestModeCfg, ReadShowsTheStoresCircuit) {
  unit().setCell("BcmAtm", 0, "Vpi", "8");
  unit().setCell("BcmAtm", 0, "Vci", "48");
  EXPECT_EQ(readBack("THROUGHPUT@VPI"), "8");
  EXPECT_EQ(readBack("THROUGHPUT@VCI"), "48");
}

TEST_F(TestModeCfg, ReadLeavesInvalidFileInTheErrorRecordAndIsServed) {
  EXPECT_NE(readBack(), "no file");
  EXPECT_EQ(recordedMessage(), "Xml File InValid");
}

TEST_F(TestModeCfg, ReadKeepsWhatItDoesNotRefresh) {
  ASSERT_EQ(answerTo("<LED><ALL_LEDS>ON</ALL_LEDS><SINGLE_LED NUM=\"80\" MODE=\"x\"/></LED>"), "ACK");
  EXPECT_EQ(readBack("LED/ALL_LEDS"), "OFF");
  EXPECT_EQ(readBack("LED/SINGLE_LED@NUM"), "80");
  EXPECT_EQ(readBack("LED/SINGLE_LED@MODE"), "x");
  EXPECT_EQ(readBack("ETHER_PORT/ETHER_PORT_SPD"), "UNKNOWN");
}

TEST_F(TestModeCfg, ReadRefreshesTheSectionsInOrder) {
  refreshes.clear();
  readBack();
  EXPECT_THAT(refreshes, ElementsAre("LEDs and buttons", "circuit", "PSD", "pair", "radio", "USB"));
}

TEST_F(TestModeCfg, ReadOnlyReadsThePoints) {
  readBack();
  Lines requests;
  for (const std::string& line : journal("request"))
    if (line.starts_with(gpioDevice))
      requests.push_back(line.substr(0, line.find(" data=")));
  Lines expected;
  for (const int point : {1, 3, 4, 8, 42, 12, 32, 43, 41})
    expected.push_back(std::string(gpioDevice) + " " + std::to_string(GPIOCTRL_READIO) +
                       " point=" + std::to_string(point));
  EXPECT_EQ(requests, expected);
}

TEST_F(TestModeCfg, ReadReportsItsSizeWithTheTerminator) {
  const std::string text = readBack();
  EXPECT_EQ(ulOutSizeTMC, text.size() + 1);
}

TEST_F(TestModeCfg, ReadReleasesTheTextOfTheReadBefore) {
  char* const first = TFTP_processGetTestModeCfg();
  ASSERT_NE(first, nullptr); // the address checker reports a text that is used after, the leak checker one that is kept
  char* const second = TFTP_processGetTestModeCfg();
  EXPECT_EQ(second, pOFileTMC);
}

TEST_F(TestModeCfg, ReadIsServedAlthoughEverySourceFails) {
  for (const std::string& fault : {noGpio, noSession, noUsbStorage})
    unit().setFault(fault, true);
  EXPECT_EQ(readBack("LED/USB_LED"), "ON");
  EXPECT_EQ(readBack("THROUGHPUT@VCI"), "35");
  EXPECT_EQ(readBack("BCOM_WIRELESS/SSID"), "NA");
  EXPECT_EQ(readBack("USB/VENDOR"), "NA");
}

TEST_F(TestModeCfg, ReadOfATreeWithoutElementsGivesNoFile) {
  pstTestModeCfgElmt = create_xml_elements(nullptr, create_sub_xml_element("top", 1, 0, nullptr, nullptr, nullptr));
  EXPECT_EQ(TFTP_processGetTestModeCfg(), nullptr);
  EXPECT_EQ(recordedMessage(), "Fail to Create Xml File");
}

TEST_F(TestModeCfg, UpdatersWithoutTheirElementFail) {
  RemoveElements(GetElement(TestModeCfgTree(), "TEST_CONFIG"), "AUTO_PAIR");
  EXPECT_EQ(run(FtmUpdateAutoPair), (Outcome{-1, "Xml File InValid", {}}));
  RemoveElements(GetElmtPtr(TestModeCfgTree(), "TEST_CONFIG", "THROUGHPUT", nullptr), "READY_STATUS");
  EXPECT_EQ(run(FtmUpdateThrPut), (Outcome{-1, "Xml File InValid", {}}));
  RemoveElements(GetElement(TestModeCfgTree(), "TEST_CONFIG"), "THROUGHPUT");
  EXPECT_EQ(run(FtmUpdateThrPut), (Outcome{-1, "Xml File InValid", {}}));
}

TEST_F(TestModeCfg, MultiHybridIsNotInTheTreeAndWouldShowUnknown) {
  EXPECT_EQ(run(FtmUpdateMultiHybrid), (Outcome{-1, "Xml File InValid", {}}));
  std::string text = "<MULTI_HYBRID><MULTI_MODE>AUTO</MULTI_MODE></MULTI_HYBRID>";
  ST_XML_ELEMENT** elements = parse_xml_elements(text.data());
  AddElement(GetElement(TestModeCfgTree(), "TEST_CONFIG"), elements[0]);
  std::free(elements);
  EXPECT_EQ(run(FtmUpdateMultiHybrid), (Outcome{0, "", {}}));
  EXPECT_EQ(inTree("MULTI_HYBRID/MULTI_MODE"), "UNKNOWN");
}

// Writing.

TEST_F(TestModeCfg, WriteWithoutTestConfigIsAnInvalidFile) {
  for (std::string text : {"", "LED", "<LED><USB_LED>ON</USB_LED></LED>", "<test_config/>", "<TEST_CONFIG"}) {
    const Outcome outcome = run([&] { return TFTP_processPutTestModeCfg(text.data()); });
    EXPECT_EQ(outcome, (Outcome{-1, "Xml File InValid", {}})) << text;
  }
}

TEST_F(TestModeCfg, WriteWithoutSectionsSucceedsAndChangesNothing) {
  const Lines before = journal();
  EXPECT_EQ(answerTo(""), "ACK");
  EXPECT_EQ(answerTo("text only"), "ACK");
  EXPECT_EQ(journal(), before);
  EXPECT_EQ(unFtmState.usWd, 0);
  EXPECT_EQ(recordedMessage(), "");
}

TEST_F(TestModeCfg, SectionsAreCarriedOutInDocumentOrder) {
  EXPECT_EQ(answerTo("<AUTO_PAIR><AUTO_MODE>OUTER</AUTO_MODE></AUTO_PAIR>"
                     "<VOIP><CUT_RELAY_1>Enable</CUT_RELAY_1></VOIP><LED><USB_LED>ON</USB_LED></LED>"),
            "ACK");
  Lines expected;
  for (const int point : {41, 22, 8})
    for (const std::string& line : pointWritten(point, 1))
      expected.push_back(line);
  EXPECT_EQ(journal(), expected);
  EXPECT_EQ(unFtmState.usWd, ledTestMask | autoPairTestMask | voiceTestMask);
}

TEST_F(TestModeCfg, AFailedSectionEndsTheWriteAndThoseBeforeItKeepTheirEffect) {
  EXPECT_EQ(answerTo("<LED><USB_LED>ON</USB_LED></LED><RESET_SWITCH/><LED><WPS_LED>ON</WPS_LED></LED>"),
            "ERROR 0 Test not supported");
  EXPECT_EQ(journal(), pointWritten(8, 1));
  EXPECT_EQ(unFtmState.usWd, ledTestMask);
}

TEST_F(TestModeCfg, SectionsThatTheFileShowsOrKnowsMayStillBeRefused) {
  for (const char* section : {"<RESET_SWITCH><RESET_SW_STATUS>OPEN</RESET_SW_STATUS></RESET_SWITCH>",
                              "<WPS_SWITCH><WPS_SW_STATUS>OPEN</WPS_SW_STATUS></WPS_SWITCH>", "<USB><ID>0</ID></USB>",
                              "<MULTI_HYBRID><MULTI_MODE>AUTO</MULTI_MODE></MULTI_HYBRID>",
                              "<PSD_SETTING><PSD_MODE>ON</PSD_MODE></PSD_SETTING>", "<led/>", "<USB_LED>ON</USB_LED>"})
    EXPECT_EQ(answerTo(section), "ERROR 0 Test not supported") << section;
  EXPECT_THAT(journal(), IsEmpty());
  EXPECT_EQ(unFtmState.usWd, 0);
}

TEST_F(TestModeCfg, TheSlotIsSharedByTheSectionsOfOneWriteOnly) {
  unit().setFault(noGpio, true);
  EXPECT_EQ(answerTo("<LED><USB_LED>ON</USB_LED></LED>"), "ERROR 0 Write data failed");
  EXPECT_EQ(answerTo("<LED><SINGLE_LED NUM=\"80\" MODE=\"x\"/></LED>"), "ACK");
}

TEST_F(TestModeCfg, AFailureWithoutAMessageReportsTheOneThatTheLastReadLeft) {
  const std::string sections = "<VOIP><TONE_1>1</TONE_1></VOIP>";
  EXPECT_EQ(answerTo(sections), "ERROR 0 ");
  readBack();
  EXPECT_EQ(answerTo(sections), "ERROR 0 Xml File InValid");
}

TEST_F(TestModeCfg, ThroughputOfALaterReadIsTheStores) {
  ASSERT_EQ(answerTo("<THROUGHPUT VPI=\"8\" VCI=\"36\"/>"), "ACK");
  EXPECT_EQ(inTree("THROUGHPUT@VCI"), "36");
  unit().setCell("BcmAtm", 0, "Vci", "99");
  EXPECT_EQ(readBack("THROUGHPUT@VCI"), "99");
}

// Every element, accepted, refused and with its driver failing: the station's answer, what the unit saw, the next read.

struct WriteCase {
  std::string name;
  std::string sections;
  std::string answer;
  Lines lines = {};
  std::string path;                      ///< of the element in the next read
  std::optional<std::string> shown = {}; ///< what the next read shows there; nothing: what the read before showed
  std::string fault = {};                ///< on during the write
  std::uint16_t flags = 0;               ///< of the active tests after the write
};

std::string element(const std::string& tag, const std::string& text) {
  return "<" + tag + ">" + text + "</" + tag + ">";
}

Lines enterFailed(int point, int data) {
  return {gpioRequest(GPIOCTRL_ENTERFTM, point, data) + failed, errorLine("GPIOCTRL_ENTERFTM ioctl failed")};
}

Lines writeFailed(int point, int data) {
  return {gpioRequest(GPIOCTRL_ENTERFTM, point, data), gpioRequest(GPIOCTRL_WRITEIO, point, data) + failed,
          errorLine("GPIOCTRL_WRITEIO ioctl failed")};
}

const Lines openFailed = {errorLine("Cannot open gpio driver")};

constexpr const char* acknowledged = "ACK";
constexpr const char* notSupported = "ERROR 0 Test not supported";
constexpr const char* readOnly = "ERROR 0 Write test config failed";
constexpr const char* writeFailure = "ERROR 0 Write data failed";
constexpr const char* noMessage = "ERROR 0 ";

void addLedCases(std::vector<WriteCase>& cases, const std::string& led, int point) {
  const std::string path = "LED/" + led;
  const std::string on = element("LED", element(led, "ON"));
  const std::string off = element("LED", element(led, "OFF"));
  cases.push_back({led + "_ON", on, acknowledged, pointWritten(point, 1), path, "ON", "", ledTestMask});
  cases.push_back({led + "_OFF", off, acknowledged, pointWritten(point, 0), path, "OFF", "", ledTestMask});
  cases.push_back({led + "_Refused", element("LED", element(led, "BLINK")), notSupported, {}, path});
  cases.push_back({led + "_WithoutDriver", on, writeFailure, openFailed, path, {}, noGpio});
  cases.push_back(
      {led + "_EnterFailing", on, writeFailure, enterFailed(point, 1), path, {}, gpioFault(GPIOCTRL_ENTERFTM)});
  cases.push_back(
      {led + "_WriteFailing", off, writeFailure, writeFailed(point, 0), path, {}, gpioFault(GPIOCTRL_WRITEIO)});
}

void addLeds(std::vector<WriteCase>& cases) {
  addLedCases(cases, "READY_GREEN_LED", 3);
  addLedCases(cases, "READY_RED_LED", 4);
  addLedCases(cases, "ETHER_LED", 12);
  addLedCases(cases, "USB_LED", 8);
  addLedCases(cases, "WPS_LED", 42);
  cases.push_back({"SESSION_LED_ON", element("LED", element("SESSION_LED", "ON")), readOnly, {}, "LED/SESSION_LED"});
  cases.push_back({"WAN_LED_Unknown", element("LED", element("WAN_LED", "ON")), notSupported, {}, "LED/WAN_LED"});
}

void addAllLeds(std::vector<WriteCase>& cases) {
  const std::string on = element("LED", element("ALL_LEDS", "ON"));
  const std::string off = element("LED", element("ALL_LEDS", "OFF"));
  const Lines switchedOn = {gpioRequest(GPIOCTRL_ENTERFTM, 100, 1), gpioRequest(GPIOCTRL_ALLLEDS_ON)};
  const Lines switchedOff = {gpioRequest(GPIOCTRL_ENTERFTM, 100, 0), gpioRequest(GPIOCTRL_ALLLEDS_OFF)};
  cases.push_back({"ALL_LEDS_ON", on, acknowledged, switchedOn, "LED/ETHER_LED", "ON", "", ledTestMask});
  cases.push_back({"ALL_LEDS_OFF", off, acknowledged, switchedOff, "LED/ETHER_LED", "OFF", "", ledTestMask});
  cases.push_back({"ALL_LEDS_OwnTextStays", on, acknowledged, switchedOn, "LED/ALL_LEDS", "OFF", "", ledTestMask});
  cases.push_back({"ALL_LEDS_Refused", element("LED", element("ALL_LEDS", "on")), notSupported, {}, "LED/ETHER_LED"});
  cases.push_back({"ALL_LEDS_WithoutDriver", on, writeFailure, openFailed, "LED/ETHER_LED", {}, noGpio});
  cases.push_back({"ALL_LEDS_EnterFailing",
                   on,
                   writeFailure,
                   enterFailed(100, 1),
                   "LED/ETHER_LED",
                   {},
                   gpioFault(GPIOCTRL_ENTERFTM)});
  cases.push_back({"ALL_LEDS_RequestFailing",
                   on,
                   writeFailure,
                   {gpioRequest(GPIOCTRL_ENTERFTM, 100, 1), gpioRequest(GPIOCTRL_ALLLEDS_ON) + failed,
                    errorLine("GPIOCTRL_WRITEIO ioctl failed")},
                   "LED/ETHER_LED",
                   {},
                   gpioFault(GPIOCTRL_ALLLEDS_ON)});
}

void addSingleLed(std::vector<WriteCase>& cases) {
  const auto led = [](const std::string& number, const std::string& mode) {
    return "<LED><SINGLE_LED NUM=\"" + number + "\" MODE=\"" + mode + "\"/></LED>";
  };
  const std::string number = "LED/SINGLE_LED@NUM";
  const std::string mode = "LED/SINGLE_LED@MODE";
  cases.push_back({"SINGLE_LED_ON", led("8", "ON"), acknowledged, pointWritten(8, 1), number, "8", "", ledTestMask});
  cases.push_back({"SINGLE_LED_OFF", led("8", "OFF"), acknowledged, pointWritten(8, 0), mode, "OFF", "", ledTestMask});
  cases.push_back(
      {"SINGLE_LED_IsLit", led("12", "ON"), acknowledged, pointWritten(12, 1), "LED/ETHER_LED", "ON", "", ledTestMask});
  cases.push_back({"SINGLE_LED_Refused", led("10", "BLINK"), notSupported, {}, number});
  cases.push_back({"SINGLE_LED_HighPoint", led("80", "BLINK"), acknowledged, {}, mode, "BLINK", "", ledTestMask});
  cases.push_back({"SINGLE_LED_TooHighPoint", led("300", "ON"), notSupported, {}, number});
  cases.push_back(
      {"SINGLE_LED_WithoutDriver", led("8", "ON"), acknowledged, openFailed, number, "8", noGpio, ledTestMask});
  cases.push_back({"SINGLE_LED_EnterFailing", led("8", "ON"), acknowledged, enterFailed(8, 1), number, "8",
                   gpioFault(GPIOCTRL_ENTERFTM), ledTestMask});
  cases.push_back({"SINGLE_LED_WriteFailing", led("8", "ON"), acknowledged, writeFailed(8, 1), number, "8",
                   gpioFault(GPIOCTRL_WRITEIO), ledTestMask});
}

void addAutoPair(std::vector<WriteCase>& cases) {
  const auto mode = [](const std::string& text) { return element("AUTO_PAIR", element("AUTO_MODE", text)); };
  const std::string path = "AUTO_PAIR/AUTO_MODE";
  cases.push_back(
      {"AUTO_MODE_INNER", mode("INNER"), acknowledged, pointWritten(41, 0), path, "INNER", "", autoPairTestMask});
  cases.push_back(
      {"AUTO_MODE_OUTER", mode("OUTER"), acknowledged, pointWritten(41, 1), path, "OUTER", "", autoPairTestMask});
  cases.push_back({"AUTO_MODE_AUTO", mode("AUTO"), notSupported, {}, path});
  cases.push_back({"AUTO_MODE_Refused", mode("MIDDLE"), notSupported, {}, path});
  cases.push_back(
      {"AUTO_MODE_WithoutDriver", mode("OUTER"), acknowledged, openFailed, path, "INNER", noGpio, autoPairTestMask});
  cases.push_back({"AUTO_MODE_WriteFailing", mode("OUTER"), acknowledged, writeFailed(41, 1), path, "INNER",
                   gpioFault(GPIOCTRL_WRITEIO), autoPairTestMask});
}

void addReadOnlySections(std::vector<WriteCase>& cases) {
  cases.push_back({"ETHER_PORT_SPD",
                   element("ETHER_PORT", element("ETHER_PORT_SPD", "100")),
                   readOnly,
                   {},
                   "ETHER_PORT/ETHER_PORT_SPD"});
  cases.push_back({"READY_STATUS",
                   element("THROUGHPUT", element("READY_STATUS", "READY")),
                   readOnly,
                   {},
                   "THROUGHPUT/READY_STATUS"});
  cases.push_back({"RESET_SW_STATUS",
                   element("RESET_SWITCH", element("RESET_SW_STATUS", "CLOSED")),
                   notSupported,
                   {},
                   "RESET_SWITCH/RESET_SW_STATUS"});
  cases.push_back({"WPS_SW_STATUS",
                   element("WPS_SWITCH", element("WPS_SW_STATUS", "CLOSED")),
                   notSupported,
                   {},
                   "WPS_SWITCH/WPS_SW_STATUS"});
  cases.push_back({"MULTI_MODE",
                   element("MULTI_HYBRID", element("MULTI_MODE", "AUTO")),
                   notSupported,
                   {},
                   "MULTI_HYBRID/MULTI_MODE",
                   "no element"});
  cases.push_back({"PSD_MODE",
                   element("PSD_SETTING", element("PSD_MODE", "AUTO")),
                   notSupported,
                   {},
                   "PSD_SETTING/PSD_MODE",
                   "no element"});
  for (const char* tag : {"HOST", "CHANNEL", "ID", "LUN", "VENDOR", "MODEL", "REV", "TYPE", "ANSI_SCSI_REV"})
    cases.push_back(
        {std::string("USB_") + tag, element("USB", element(tag, "x")), notSupported, {}, std::string("USB/") + tag});
}

void addWireless(std::vector<WriteCase>& cases) {
  const auto wireless = [](const std::string& tag, const std::string& text) {
    return element("BCOM_WIRELESS", element(tag, text));
  };
  const std::string ssid = "BCOM_WIRELESS/SSID";
  const std::string channel = "BCOM_WIRELESS/CHANNEL";
  cases.push_back({"SSID", wireless("SSID", "factory"), acknowledged, {}, ssid, {}, "", wirelessTestMask});
  cases.push_back(
      {"SSID_Refused", wireless("SSID", std::string(32, 's')), notSupported, {}, ssid, {}, "", wirelessTestMask});
  cases.push_back({"CHANNEL", wireless("CHANNEL", "11"), acknowledged, {}, channel, {}, "", wirelessTestMask});
  cases.push_back({"CHANNEL_Refused", wireless("CHANNEL", "12"), notSupported, {}, channel, {}, "", wirelessTestMask});
  for (const char* tag : {"MAC_ADDR", "DOMAIN"})
    cases.push_back({std::string(tag) + "_Ignored",
                     wireless(tag, "x"),
                     acknowledged,
                     {},
                     std::string("BCOM_WIRELESS/") + tag,
                     {},
                     "",
                     wirelessTestMask});
}

void addVoip(std::vector<WriteCase>& cases) {
  const auto add = [&cases](const std::string& name, const std::string& tag, const std::string& text,
                            const std::string& answer, const Lines& lines = {}, const std::string& fault = {}) {
    cases.push_back({tag + "_" + name, element("VOIP", element(tag, text)), answer, lines, "VOIP", "no element", fault,
                     voiceTestMask});
  };
  const std::pair<std::string, int> lines[] = {{"1", 22}, {"2", 23}};
  for (const auto& [line, relay] : lines) {
    for (const char* voltage : {"25v", "50v", "75v"})
      add(voltage, "RING_VOLTAGE_" + line, voltage, noMessage);
    add("Refused", "RING_VOLTAGE_" + line, "90v", notSupported);
    add("ON", "HOOK_" + line, "ON", acknowledged);
    add("OFF", "HOOK_" + line, "OFF", acknowledged);
    add("Refused", "HOOK_" + line, "on", notSupported);
    add("Enable", "CUT_RELAY_" + line, "Enable", acknowledged, pointWritten(relay, 1));
    add("Disable", "CUT_RELAY_" + line, "Disable", acknowledged, pointWritten(relay, 0));
    add("Refused", "CUT_RELAY_" + line, "ON", notSupported);
    add("WithoutDriver", "CUT_RELAY_" + line, "Enable", noMessage, openFailed, noGpio);
    add("EnterFailing", "CUT_RELAY_" + line, "Enable", noMessage, enterFailed(relay, 1), gpioFault(GPIOCTRL_ENTERFTM));
    add("WriteFailing", "CUT_RELAY_" + line, "Enable", noMessage, writeFailed(relay, 1), gpioFault(GPIOCTRL_WRITEIO));
    add("ON", "DECODER_" + line, "ON", acknowledged);
    add("OFF", "DECODER_" + line, "OFF", noMessage);
    add("Refused", "DECODER_" + line, "on", notSupported);
    for (const char* tone : {"1", "2", "3", "4", "None", "howler"})
      add(tone, "TONE_" + line, tone, noMessage);
    add("Unknown", "DIGIT_RX_" + line, "1", acknowledged);
  }
}

std::vector<WriteCase> writeCases() {
  std::vector<WriteCase> cases;
  addLeds(cases);
  addAllLeds(cases);
  addSingleLed(cases);
  addAutoPair(cases);
  addReadOnlySections(cases);
  addWireless(cases);
  addVoip(cases);
  return cases;
}

void PrintTo(const WriteCase& write, std::ostream* out) {
  *out << write.name;
}

class EveryElement : public ConfigFile, public testing::WithParamInterface<WriteCase> {};

TEST_P(EveryElement, Written) {
  const WriteCase& write = GetParam();
  ledTest(allLedsPoint, write.sections.find(">OFF<") != std::string::npos ? 1 : 0); // so that a change shows
  const std::string before = readBack(write.path);
  FTM_ClrErrorTFTP();
  const std::size_t position = journal().size();

  if (!write.fault.empty())
    unit().setFault(write.fault, true);
  EXPECT_EQ(answerTo(write.sections), write.answer);
  EXPECT_EQ(journalFrom(position), write.lines);
  EXPECT_EQ(unFtmState.usWd, write.flags);

  if (!write.fault.empty())
    unit().setFault(write.fault, false);
  EXPECT_EQ(readBack(write.path), write.shown.value_or(before));
}

INSTANTIATE_TEST_SUITE_P(OfTheFile, EveryElement, testing::ValuesIn(writeCases()),
                         [](const auto& write) { return write.param.name; });

// The circuit.

struct CircuitCase {
  std::string name;
  std::string attributes;
  std::string answer;
  Lines commands;
  std::string fault = {};
};

void PrintTo(const CircuitCase& write, std::ostream* out) {
  *out << write.name;
}

const std::string moveTo36 = "/etc/init.d/NewVpiVci.sh 1.8.36 02:1a:2b:00:00:01";
const std::string leave35 = "/etc/init.d/DelOrgVpiVci.sh 1.0.35";

const CircuitCase circuitCases[] = {
    {"Moved", "VPI=\"8\" VCI=\"36\"", acknowledged, {leave35, moveTo36}},
    {"WithoutAttributes", "", acknowledged, {}},
    {"WithOneAttribute", "VPI=\"8\"", acknowledged, {}},
    {"WithoutStore", "VPI=\"8\" VCI=\"36\"", "ERROR 0 Fail to Create Xml File", {moveTo36}, noSession},
};

class Circuit : public ConfigFile, public testing::WithParamInterface<CircuitCase> {};

TEST_P(Circuit, Written) {
  const CircuitCase& write = GetParam();
  if (!write.fault.empty())
    unit().setFault(write.fault, true);
  EXPECT_EQ(answerTo("<THROUGHPUT " + write.attributes + "/>"), write.answer);
  EXPECT_EQ(journal("command"), write.commands);
  EXPECT_EQ(unFtmState.usWd, throughputTestMask);
  if (!write.fault.empty())
    unit().setFault(write.fault, false);
  EXPECT_EQ(readBack("THROUGHPUT@VPI"), unit().cell("BcmAtm", 0, "Vpi"));
  EXPECT_EQ(readBack("THROUGHPUT@VCI"), unit().cell("BcmAtm", 0, "Vci"));
  EXPECT_EQ(readBack("THROUGHPUT/READY_STATUS"), "READY");
}

INSTANTIATE_TEST_SUITE_P(OfTheFile, Circuit, testing::ValuesIn(circuitCases),
                         [](const auto& write) { return write.param.name; });

} // namespace
