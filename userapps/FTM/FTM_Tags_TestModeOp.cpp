#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/gpioctrl.h"
#include "userapps/FTM/FTM_Apis.h"
#include "userapps/FTM/FTM_App.h"
#include "userapps/FTM/FTM_Handles.h"
#include "userapps/FTM/FTM_Tags.h"
#include "userapps/FTM/VoipTask.h"

int bResetSwTest;
ST_XML_ELEMENT* pstTestModeOpElmt;

namespace {

struct TestMode {
  std::uint16_t mask;
  const char* enterName; // child of ENTER_TEST; null: this file can't start the test
  int (*enter)(ST_XML_ELEMENT* test, int* piretval);
  void (*exit)();
};

int enterNothing(ST_XML_ELEMENT*, int*) {
  return 0;
}
void exitNothing() {}

template <void (*action)()>
int enterWith(ST_XML_ELEMENT*, int*) {
  action();
  return 0;
}

// In the order in which active tests are ended.
constexpr TestMode testModes[] = {
    {ledTestMask, "LED", enterWith<FtmActionLedTst>, FtmActionExitLedTst},
    {resetSwitchTestMask, "RESET_SWITCH", enterWith<FtmActionRsSwTst>, FtmActionExitRsSwTst},
    {throughputTestMask, "THROUGHPUT", FTM_ParseTagTHRPUT, FtmActionExitThrPutTst},
    {multiHybridTestMask, nullptr, enterNothing, FtmActionExitMultiHybridTst},
    {autoPairTestMask, "AUTO_PAIR", enterWith<FtmActionAutoPairTst>, FtmActionExitAutoPairTst},
    {wirelessTestMask, "BCOM_WIRELESS", enterNothing, exitNothing},
    {voiceTestMask, "VOIP", FTM_ParseTagVOIP, exitNothing},
};

struct SystemCommand {
  const char* name;
  int (*run)();
};

constexpr SystemCommand systemCommands[] = {
    {"RESYNC", FTM_DSL_Resync},
    {"REBOOT", [] { return FTM_Reboot(0); }},
    {"REBOOT_TO_SAFEBOOT", [] { return FTM_Reboot(1); }},
};

// The declaration carries no quotes, and only four of the tests are named as supported; the station expects both.
constexpr const char* documentHead =
    "<?xml version=1.0 encoding=UTF-8?><SUPPORTED_TESTS><LED/><THROUGHPUT/><RESET_SWITCH/><BCOM_WIRELESS/>"
    "</SUPPORTED_TESTS><ACTIVE_TEST>";
constexpr const char* documentTail = "</ACTIVE_TEST>";

std::string operationText() {
  std::string text = documentHead;
  for (const ListedTest& test : listedTests)
    if ((unFtmState.usWd & test.mask) != 0)
      text.append("<").append(test.name).append("/>");
  return text.append(documentTail);
}

bool hasElements(const ST_XML_ELEMENT& element) {
  return element.m_elements != nullptr && element.m_elements[0] != nullptr;
}

int fail(const char* message, int result) {
  FTM_FlgErrorTFTP(0, message, 0);
  return result;
}

const TestMode* findTest(const char* enterName) {
  for (const TestMode& test : testModes)
    if (test.enterName != nullptr && std::strcmp(test.enterName, enterName) == 0)
      return &test;
  return nullptr;
}

void freeText(char*& text) {
  std::free(text);
  text = nullptr;
}

} // namespace

int TFTP_processGetTestModeOp(char**, unsigned long*) {
  std::string text = operationText();
  destroy_xml_object(pstTestModeOpElmt);
  pstTestModeOpElmt = create_xml_object(text.data());
  return TFTP_createXmlFile(&pOFileTMO, &ulOutSizeTMO, pstTestModeOpElmt);
}

int TFTP_processPutTestModeOp(char* pszXmlData) {
  FTM_ClrErrorTFTP();
  const XmlTree document(create_xml_object(pszXmlData));
  if (!hasElements(*document))
    return fail(szCrtXobjFail, -1);
  int result = ProcessENTER_TEST(document.get());
  if (result == -1)
    result = ProcessEXIT_TEST(document.get());
  if (result == -1)
    result = ProcessSysCmd(document.get());
  return result;
}

int ProcessENTER_TEST(ST_XML_ELEMENT* pstXmlElmt) {
  FTM_ClrErrorTFTP();
  const ST_XML_ELEMENT* command = GetElement(pstXmlElmt, "ENTER_TEST");
  if (command == nullptr || GetElements(command) == nullptr)
    return fail(szFileInVid, -1);
  ST_XML_ELEMENT* child = GetElements(command)[0];
  if (child == nullptr)
    return fail(szNoCmdFnd, -1);
  const TestMode* test = findTest(GetTag(child));
  if (test == nullptr)
    return fail(szTstUnsp, 1);

  // The flag is set first and stays when the action fails; a test that is active already is entered again.
  unFtmState.usWd = static_cast<std::uint16_t>(unFtmState.usWd | test->mask);
  int retval = 0;
  const int result = test->enter(child, &retval);
  return retval != 0 ? fail(szWrFail, 1) : result;
}

int ProcessEXIT_TEST(ST_XML_ELEMENT* pstXmlElmt) {
  FTM_ClrErrorTFTP();
  if (GetElement(pstXmlElmt, "EXIT_TEST") == nullptr)
    return fail(szFileInVid, -1);
  for (const TestMode& test : testModes)
    if ((unFtmState.usWd & test.mask) != 0)
      test.exit();
  unFtmState.usWd = 0;
  return 0;
}

// The error record is not cleared first: what the commands before left there stays after a success.
int ProcessSysCmd(ST_XML_ELEMENT* pstXmlElmt) {
  for (const SystemCommand& command : systemCommands)
    if (GetElement(pstXmlElmt, command.name) != nullptr)
      return command.run() == 0 ? 0 : fail(szWrFail, -1);
  return fail(szNoCmdFnd, -1);
}

void FTM_ExitCleanUp() {
  unFtmState.usWd = 0;
  freeText(pOFileSTAT);
  freeText(pOFileMIF);
  freeText(pOFilePROG);
  freeText(pOFileTMC);
  freeText(pOFileTMO);
  freeText(pOFileSTAT4P);
  freeText(pOFileSTAT2);
}

int getFtmResetSwTest() {
  return bResetSwTest;
}

void FtmActionLedTst() {
  ledTest(allLedsPoint, 0);
}

void FtmActionExitLedTst() {
  ledTest(allLedsPoint, leaveTestSetting);
}

void FtmActionRsSwTst() {
  bResetSwTest = 1;
  const Descriptor gpio = openDevice(gpioDevice);
  if (!gpio.isOpen())
    FTM_ReportDevice("Cannot open gpio driver");
  // Issued on a descriptor that could not be opened, too: the engineer sees both lines.
  led_gpio_readwrite point{};
  if (board_ioctl(gpio.get(), GPIOCTRL_ENTERFTM, &point) < 0)
    FTM_ReportDevice("GPIOCTRL_ENTERFTM ioctl failed");
}

void FtmActionExitRsSwTst() {
  bResetSwTest = 0;
}

// Hooks without a task on this gateway: the work of these tests is done by the configuration file's parsers and the
// device operations.

int FtmActionThrPutTst(ST_XML_ELEMENT*) {
  return 0;
}
void FtmActionExitThrPutTst() {}
void FtmActionMultiHybridTst() {}
void FtmActionExitMultiHybridTst() {}
void FtmActionAutoPairTst() {}
void FtmActionExitAutoPairTst() {}
void FtmActionTPutREADY() {}
void FtmActionTPutNOT_READY() {}
void FtmActionReSync() {}
void FtmActionReboot() {}
void FtmActionRbSaveBoot() {}
void FtmActionVpiVciSys(int, unsigned short, unsigned short) {}
