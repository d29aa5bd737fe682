#include <gmock/gmock.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "tests/unit/bench_unit.h"
#include "tests/unit/device_lines.h"
#include "tests/unit/virtual_files.h"
#include "userapps/FTM/FTM_Apis.h"
#include "userapps/FTM/FTM_App.h"
#include "userapps/FTM/FTM_Tags.h"

using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

namespace {

/// What the service has freed, in order. Never destroyed: what runs after main() frees memory, too.
auto& released = *new std::vector<const void*>;
bool isParsedListEmptied = false;
std::vector<int> resetSwitchTestAtIoctl; ///< whether that test was on at each request to a driver
std::vector<std::uint16_t> flagsAtIoctl; ///< the active tests then

} // namespace

// The linker puts these in front of the functions.
extern "C" void __real_free(void* memory);
extern "C" void __wrap_free(void* memory);
extern "C" void __wrap_free(void* memory) {
  released.push_back(memory);
  __real_free(memory);
}

extern "C" int __real_board_ioctl(int descriptor, unsigned long request, void* argument);
extern "C" int __wrap_board_ioctl(int descriptor, unsigned long request, void* argument);
extern "C" int __wrap_board_ioctl(int descriptor, unsigned long request, void* argument) {
  resetSwitchTestAtIoctl.push_back(getFtmResetSwTest());
  flagsAtIoctl.push_back(unFtmState.usWd);
  return __real_board_ioctl(descriptor, request, argument);
}

ST_XML_ELEMENT* real_create_xml_object(char* text) asm("__real__Z17create_xml_objectPc");
ST_XML_ELEMENT* wrap_create_xml_object(char* text) asm("__wrap__Z17create_xml_objectPc");

// The parser itself makes no list before there is an element for it.
ST_XML_ELEMENT* wrap_create_xml_object(char* text) {
  ST_XML_ELEMENT* const document = real_create_xml_object(text);
  while (isParsedListEmptied && GetElements(document)[0] != nullptr)
    RemoveElements(document, GetTag(GetElements(document)[0]));
  return document;
}

namespace {

const std::string head = "<?xml version=1.0 encoding=UTF-8?><SUPPORTED_TESTS><LED/><THROUGHPUT/><RESET_SWITCH/>"
                         "<BCOM_WIRELESS/></SUPPORTED_TESTS><ACTIVE_TEST>";

class OperationFile : public BenchUnit {
protected:
  OperationFile() {
    unFtmState.usWd = 0;
    bResetSwTest = 0;
    flagsAtIoctl.clear();
    FTM_ClrErrorTFTP();
  }
  ~OperationFile() override {
    FTM_ExitCleanUp();
    destroy_xml_object(pstTestModeOpElmt);
    pstTestModeOpElmt = nullptr;
    destroy_xml_object(pstTestModeCfgElmt);
    pstTestModeCfgElmt = nullptr;
  }

  static int put(std::string text) { return TFTP_processPutTestModeOp(text.data()); }

  static std::string enter(const std::string& test) { return "<ENTER_TEST>" + test + "</ENTER_TEST>"; }

  /// The text of a read.
  static std::string get() {
    std::free(pOFileTMO);
    pOFileTMO = nullptr;
    return TFTP_processGetTestModeOp(nullptr, nullptr) == 0 ? pOFileTMO : "no file";
  }

  /// What the serialised form of a document of the file is.
  static std::string serialised(std::string document) {
    const XmlTree tree(create_xml_object(document.data()));
    char* text = nullptr;
    unsigned long size = 0;
    if (TFTP_createXmlFile(&text, &size, tree.get()) != 0)
      return "not serialised";
    std::string result = text;
    std::free(text);
    return result;
  }
};

} // namespace

// Reading.

TEST_F(OperationFile, ReadWithNoTestActiveListsNone) {
  EXPECT_EQ(get(), serialised(head + "</ACTIVE_TEST>"));
  EXPECT_THAT(journal(), IsEmpty());
}

TEST_F(OperationFile, ReadListsEveryActiveTestInOrderButNeverMultiHybrid) {
  unFtmState.usWd = 0xFE00;
  EXPECT_EQ(get(), serialised(head + "<LED/><RESET_SWITCH/><THROUGH_PUT/><AUTO_PAIR/><BCOM_WIRELESS/><VOIP/>"
                                     "</ACTIVE_TEST>"));
}

TEST_F(OperationFile, ReadHasTwoTopLevelElementsAndADeclaration) {
  get();
  ST_XML_ELEMENT** elements = GetElements(pstTestModeOpElmt);
  ASSERT_NE(elements, nullptr);
  EXPECT_STREQ(GetTag(elements[0]), "xml");
  EXPECT_STREQ(GetAttrValue(elements[0], "encoding"), "UTF-8");
  EXPECT_STREQ(GetTag(elements[1]), "SUPPORTED_TESTS");
  EXPECT_STREQ(GetTag(elements[2]), "ACTIVE_TEST");
  EXPECT_EQ(elements[3], nullptr);
}

TEST_F(OperationFile, ReadReportsItsSizeWithTheTerminator) {
  const std::string text = get();
  EXPECT_EQ(ulOutSizeTMO, text.size() + 1);
}

TEST_F(OperationFile, ReadKeepsTheFlagsAndListsThemAgain) {
  unFtmState.usWd = wirelessTestMask;
  const std::string first = get();
  EXPECT_EQ(get(), first);
  EXPECT_EQ(unFtmState.usWd, wirelessTestMask);
}

TEST_F(OperationFile, ReadWhoseTextCannotBeHandedOverFails) {
  get();
  const std::string kept = pOFileTMO;
  EXPECT_EQ(TFTP_processGetTestModeOp(nullptr, nullptr), -1); // the previous text was not released
  EXPECT_EQ(recordedMessage(), "Fail to Create Xml File");
  EXPECT_EQ(pOFileTMO, kept);
}

// Entering a test.

TEST_F(OperationFile, EnterLedSwitchesAllLedsOffInTestMode) {
  EXPECT_EQ(put(enter("<LED/>")), 0);
  EXPECT_EQ(unFtmState.usWd, ledTestMask);
  EXPECT_THAT(journal(), ElementsAre(gpioRequest(GPIOCTRL_ENTERFTM, 100, 0), gpioRequest(GPIOCTRL_ALLLEDS_OFF)));
}

TEST_F(OperationFile, EnterResetSwitchPutsTheDriverIntoTestModeWithAnEmptyRecord) {
  EXPECT_EQ(put(enter("<RESET_SWITCH/>")), 0);
  EXPECT_EQ(unFtmState.usWd, resetSwitchTestMask);
  EXPECT_EQ(getFtmResetSwTest(), 1);
  EXPECT_THAT(journal(), ElementsAre(gpioRequest(GPIOCTRL_ENTERFTM, 0, 0)));
}

TEST_F(OperationFile, EnterSetsTheFlagBeforeItsAction) {
  const std::pair<const char*, std::uint16_t> tests[] = {
      {"<LED/>", ledTestMask},
      {"<RESET_SWITCH/>", resetSwitchTestMask},
      {"<VOIP><CUT_RELAY_1>Enable</CUT_RELAY_1></VOIP>", voiceTestMask}};
  for (const auto& [test, mask] : tests) {
    unFtmState.usWd = 0;
    flagsAtIoctl.clear();
    EXPECT_EQ(put(enter(test)), 0) << test;
    EXPECT_THAT(flagsAtIoctl, AllOf(Not(IsEmpty()), Each(mask))) << test;
  }
}

TEST_F(OperationFile, EnterAutoPairAndWirelessOnlySetTheirFlags) {
  EXPECT_EQ(put(enter("<AUTO_PAIR/>")), 0);
  EXPECT_EQ(put(enter("<BCOM_WIRELESS/>")), 0);
  EXPECT_EQ(unFtmState.usWd, autoPairTestMask | wirelessTestMask);
  EXPECT_THAT(journal(), IsEmpty());
}

TEST_F(OperationFile, EnterVoipHandsTheElementToItsParser) {
  EXPECT_EQ(put(enter("<VOIP><CUT_RELAY_2>Enable</CUT_RELAY_2></VOIP>")), 0);
  EXPECT_EQ(unFtmState.usWd, voiceTestMask);
  EXPECT_THAT(journal(), ElementsAre(gpioRequest(GPIOCTRL_ENTERFTM, 23, 1), gpioRequest(GPIOCTRL_WRITEIO, 23, 1)));
}

TEST_F(OperationFile, EnterThroughputIsListedWithAnUnderscore) {
  EXPECT_EQ(put(enter("<THROUGHPUT/>")), 0);
  EXPECT_EQ(unFtmState.usWd, throughputTestMask);
  EXPECT_EQ(get(), serialised(head + "<THROUGH_PUT/></ACTIVE_TEST>"));
}

TEST_F(OperationFile, EnterThroughputWithReadyStatusFallsThroughToNoCommandAndKeepsTheFlag) {
  EXPECT_EQ(put(enter("<THROUGHPUT><READY_STATUS>READY</READY_STATUS></THROUGHPUT>")), -1);
  EXPECT_EQ(recordedMessage(), "No Command Found");
  EXPECT_EQ(unFtmState.usWd, throughputTestMask);
}

TEST_F(OperationFile, EnterThroughputWithReadyStatusBesideExitTestEndsAllTests) {
  EXPECT_EQ(put(enter("<THROUGHPUT><READY_STATUS>READY</READY_STATUS></THROUGHPUT>") + "<EXIT_TEST/>"), 0);
  EXPECT_EQ(unFtmState.usWd, 0);
}

TEST_F(OperationFile, EnterVoipWhoseLastChildFailsFallsThroughToNoCommandAndKeepsTheFlag) {
  for (const char* children : {"<RING_VOLTAGE_1>25v</RING_VOLTAGE_1>", "<HOOK_1>on</HOOK_1>",
                               "<CUT_RELAY_1>Enable</CUT_RELAY_1><RING_VOLTAGE_1>25v</RING_VOLTAGE_1>"}) {
    unFtmState.usWd = 0;
    EXPECT_EQ(put(enter(std::string("<VOIP>") + children + "</VOIP>")), -1) << children;
    EXPECT_EQ(recordedMessage(), "No Command Found") << children;
    EXPECT_EQ(unFtmState.usWd, voiceTestMask) << children;
  }
}

TEST_F(OperationFile, EnterVoipThatFailsBesideExitTestEndsAllTests) {
  unFtmState.usWd = wirelessTestMask;
  EXPECT_EQ(put(enter("<VOIP><HOOK_1>on</HOOK_1></VOIP>") + "<EXIT_TEST/>"), 0);
  EXPECT_EQ(recordedMessage(), "");
  EXPECT_EQ(unFtmState.usWd, 0);
}

TEST_F(OperationFile, EnterThroughputWhoseCircuitChangeFailsEndsWithWriteFailedAndKeepsTheFlag) {
  unit().setFault(noSession, true);
  EXPECT_EQ(put(enter("<THROUGHPUT VPI=\"8\" VCI=\"36\"/>") + "<REBOOT/>"), 1);
  EXPECT_EQ(recordedMessage(), "Write data failed");
  EXPECT_EQ(unFtmState.usWd, throughputTestMask);
  EXPECT_THAT(journal("reboot"), IsEmpty());
}

TEST_F(OperationFile, EnterOfAnUnknownTestIsNotSupportedAndStopsTheChain) {
  for (const char* test : {"<MULTI_HYBRID/>", "<led/>", "<THROUGH_PUT/>", "<LEDS/>", "<LE/>"}) {
    EXPECT_EQ(put(enter(test) + "<EXIT_TEST/><REBOOT/>"), 1) << test;
    EXPECT_EQ(recordedMessage(), "Test not supported") << test;
    EXPECT_EQ(unFtmState.usWd, 0) << test;
  }
  EXPECT_THAT(journal(), IsEmpty());
}

TEST_F(OperationFile, EnterOfAnUnknownTestLeavesActiveTestsAlone) {
  unFtmState.usWd = wirelessTestMask;
  EXPECT_EQ(put(enter("<MULTI_HYBRID/>") + "<EXIT_TEST/>"), 1);
  EXPECT_EQ(unFtmState.usWd, wirelessTestMask);
}

TEST_F(OperationFile, EnterTakesOnlyTheFirstOfTwoTests) {
  EXPECT_EQ(put(enter("<BCOM_WIRELESS/><LED/>")), 0);
  EXPECT_EQ(unFtmState.usWd, wirelessTestMask);
  EXPECT_THAT(journal(), IsEmpty());
}

TEST_F(OperationFile, EnterOfAnActiveTestRepeatsItsAction) {
  put(enter("<RESET_SWITCH/>"));
  EXPECT_EQ(put(enter("<RESET_SWITCH/>")), 0);
  EXPECT_THAT(journal(), ElementsAre(gpioRequest(GPIOCTRL_ENTERFTM, 0, 0), gpioRequest(GPIOCTRL_ENTERFTM, 0, 0)));
}

TEST_F(OperationFile, TestsDoNotExcludeEachOther) {
  put(enter("<LED/>"));
  put(enter("<RESET_SWITCH/>"));
  EXPECT_EQ(unFtmState.usWd, ledTestMask | resetSwitchTestMask);
}

TEST_F(OperationFile, EnterWithoutContentIsNoEnterTest) {
  std::string text = "<ENTER_TEST/>";
  const XmlTree document(create_xml_object(text.data()));
  EXPECT_EQ(ProcessENTER_TEST(document.get()), -1);
  EXPECT_EQ(recordedMessage(), "Xml File InValid");
}

TEST_F(OperationFile, EnterWithAnEmptiedChildListFindsNoCommand) {
  std::string text = enter("<LED/>");
  const XmlTree document(create_xml_object(text.data()));
  RemoveElements(GetElement(document.get(), "ENTER_TEST"), "LED");
  EXPECT_EQ(ProcessENTER_TEST(document.get()), -1);
  EXPECT_EQ(recordedMessage(), "No Command Found");
}

TEST_F(OperationFile, EnterClearsTheErrorOfAnEarlierWrite) {
  put("<NOTHING/>");
  EXPECT_EQ(put(enter("<BCOM_WIRELESS/>")), 0);
  EXPECT_EQ(recordedMessage(), "");
}

TEST_F(OperationFile, EachCommandOfATestClearsTheErrorRecordItself) {
  std::string text = enter("<BCOM_WIRELESS/>") + "<EXIT_TEST/>";
  const XmlTree document(create_xml_object(text.data()));
  for (const auto command : {ProcessENTER_TEST, ProcessEXIT_TEST}) {
    FTM_FlgErrorTFTP(0, szWrFail, 0);
    EXPECT_EQ(command(document.get()), 0);
    EXPECT_EQ(recordedMessage(), "");
  }
}

TEST_F(OperationFile, EnterWinsOverARebootBesideIt) {
  EXPECT_EQ(put("<REBOOT/>" + enter("<BCOM_WIRELESS/>")), 0);
  EXPECT_EQ(unFtmState.usWd, wirelessTestMask);
  EXPECT_THAT(journal(), IsEmpty());
}

// Failing devices.

TEST_F(OperationFile, EnterLedSucceedsAlthoughTheDriverIsMissing) {
  unit().setFault(noGpio, true);
  testing::internal::CaptureStdout();
  EXPECT_EQ(put(enter("<LED/>")), 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "eUserIOPoint = 100\nCannot open gpio driver\n");
  EXPECT_EQ(unFtmState.usWd, ledTestMask);
  EXPECT_THAT(journal(), ElementsAre(errorLine("Cannot open gpio driver")));
}

TEST_F(OperationFile, EnterResetSwitchWithTheDriverMissingReportsBothFailuresAndSucceeds) {
  unit().setFault(noGpio, true);
  testing::internal::CaptureStdout();
  EXPECT_EQ(put(enter("<RESET_SWITCH/>")), 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "Cannot open gpio driver\nGPIOCTRL_ENTERFTM ioctl failed\n");
  EXPECT_EQ(unFtmState.usWd, resetSwitchTestMask);
  EXPECT_EQ(getFtmResetSwTest(), 1);
  EXPECT_THAT(journal(),
              ElementsAre(errorLine("Cannot open gpio driver"), errorLine("GPIOCTRL_ENTERFTM ioctl failed")));
}

TEST_F(OperationFile, EnterResetSwitchWithTheRequestFailingReportsItAndSucceeds) {
  unit().setFault(gpioFault(GPIOCTRL_ENTERFTM), true);
  testing::internal::CaptureStdout();
  EXPECT_EQ(put(enter("<RESET_SWITCH/>")), 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "GPIOCTRL_ENTERFTM ioctl failed\n");
  EXPECT_EQ(unFtmState.usWd, resetSwitchTestMask);
}

// Leaving the tests.

TEST_F(OperationFile, ExitEndsLedAndResetSwitchInOrderAndClearsEveryFlag) {
  unFtmState.usWd = 0xFFFF;
  bResetSwTest = 1;
  resetSwitchTestAtIoctl.clear();
  EXPECT_EQ(put("<EXIT_TEST/>"), 0);
  EXPECT_THAT(resetSwitchTestAtIoctl, ElementsAre(1)); // when the LED test ended
  EXPECT_THAT(flagsAtIoctl, ElementsAre(0xFFFF));      // they go when all tests have ended
  EXPECT_EQ(unFtmState.usWd, 0);
  EXPECT_EQ(getFtmResetSwTest(), 0);
  EXPECT_THAT(journal(), ElementsAre(gpioRequest(GPIOCTRL_EXITFTM, 100, 99)));
  EXPECT_EQ(recordedMessage(), "");
}

TEST_F(OperationFile, ExitWithOnlyWirelessActiveRunsNoActionAndClearsTheFlag) {
  unFtmState.usWd = wirelessTestMask;
  bResetSwTest = 1; // an exit action of the reset-switch test would clear it
  EXPECT_EQ(put("<EXIT_TEST><LED/></EXIT_TEST>"), 0);
  EXPECT_EQ(unFtmState.usWd, 0);
  EXPECT_EQ(getFtmResetSwTest(), 1);
  EXPECT_THAT(journal(), IsEmpty());
}

TEST_F(OperationFile, ExitEndsTheMultiHybridTestThatThisFileCannotStart) {
  unFtmState.usWd = multiHybridTestMask;
  EXPECT_EQ(put("<EXIT_TEST/>"), 0);
  EXPECT_EQ(unFtmState.usWd, 0);
}

TEST_F(OperationFile, ExitSucceedsAlthoughTheDriverFails) {
  unit().setFault(gpioFault(GPIOCTRL_EXITFTM), true);
  unFtmState.usWd = ledTestMask;
  EXPECT_EQ(put("<EXIT_TEST/>"), 0);
  EXPECT_EQ(unFtmState.usWd, 0);
}

TEST_F(OperationFile, ExitElementMissingIsAnInvalidFile) {
  std::string text = "<REBOOT/>";
  const XmlTree document(create_xml_object(text.data()));
  EXPECT_EQ(ProcessEXIT_TEST(document.get()), -1);
  EXPECT_EQ(recordedMessage(), "Xml File InValid");
}

// System commands.

TEST_F(OperationFile, RebootIsANormalOne) {
  EXPECT_EQ(put("<REBOOT/>"), 0);
  EXPECT_THAT(journal("request"), ElementsAre("/dev/flshmgmt 30", "/dev/flshmgmt 7"));
}

TEST_F(OperationFile, RebootToSafebootPreparesSafeboot) {
  EXPECT_EQ(put("<REBOOT_TO_SAFEBOOT/>"), 0);
  EXPECT_THAT(journal("request"), ElementsAre("/dev/flshmgmt 31", "/dev/flshmgmt 7"));
}

TEST_F(OperationFile, ResyncWinsOverTheRebootsBesideIt) {
  EXPECT_EQ(put("<REBOOT_TO_SAFEBOOT/><REBOOT/><RESYNC/>"), 0);
  EXPECT_THAT(journal(),
              ElementsAre(adslRequest(ADSLIOCTL_CONNECTION_STOP, 0), adslRequest(ADSLIOCTL_CONNECTION_START, 0)));
}

TEST_F(OperationFile, RebootWinsOverSafebootBesideIt) {
  EXPECT_EQ(put("<REBOOT_TO_SAFEBOOT/><REBOOT/>"), 0);
  EXPECT_THAT(journal("request"), ElementsAre("/dev/flshmgmt 30", "/dev/flshmgmt 7"));
}

TEST_F(OperationFile, ResyncThatFailsIsAFailedWrite) {
  unit().setFault(noAdsl, true);
  EXPECT_EQ(put("<RESYNC/>"), -1);
  EXPECT_EQ(recordedMessage(), "Write data failed");
}

TEST_F(OperationFile, ASystemCommandLeavesTheMessageOfTheStepBeforeIt) {
  EXPECT_EQ(put("<RESYNC/>"), 0);
  EXPECT_EQ(recordedMessage(), "Xml File InValid");
}

TEST_F(OperationFile, AnUnknownCommandIsNotFound) {
  EXPECT_EQ(put("<RESTART/>"), -1);
  EXPECT_EQ(recordedMessage(), "No Command Found");
  EXPECT_THAT(journal(), IsEmpty());
}

// Texts that hold no document.

TEST_F(OperationFile, ADocumentWithAnEmptiedListOfElementsDoesNotParse) {
  isParsedListEmptied = true;
  const int status = put("<REBOOT/>");
  isParsedListEmptied = false;
  EXPECT_EQ(status, -1);
  EXPECT_EQ(recordedMessage(), "Fail to Create Xml Data Obj");
  EXPECT_THAT(journal(), IsEmpty());
}

TEST_F(OperationFile, ATextWithoutAnElementDoesNotParse) {
  for (const char* text : {"", "REBOOT", "<!-- <REBOOT/>", "<REBOOT", "   "}) {
    EXPECT_EQ(put(text), -1) << text;
    EXPECT_EQ(recordedMessage(), "Fail to Create Xml Data Obj") << text;
  }
  EXPECT_THAT(journal(), IsEmpty());
}

// The rest of the interface.

TEST_F(OperationFile, CleanUpFreesTheTextsInTheirOrder) {
  std::vector<const void*> texts;
  for (char** text : {&pOFileSTAT, &pOFileMIF, &pOFilePROG, &pOFileTMC, &pOFileTMO, &pOFileSTAT4P, &pOFileSTAT2}) {
    *text = static_cast<char*>(std::calloc(1, 16));
    texts.push_back(*text);
  }
  released.clear();
  FTM_ExitCleanUp();
  EXPECT_EQ(released, texts);
}

TEST_F(OperationFile, CleanUpClearsTheFlagsAndFreesEveryText) {
  unFtmState.usWd = 0xFFFF;
  char** const texts[] = {&pOFileSTAT, &pOFileMIF, &pOFilePROG, &pOFileTMC, &pOFileTMO, &pOFileSTAT4P, &pOFileSTAT2};
  for (char** text : texts)
    *text = static_cast<char*>(std::calloc(1, 16)); // the leak checker reports one that is not freed
  FTM_ExitCleanUp();
  EXPECT_EQ(unFtmState.usWd, 0);
  for (char** text : texts)
    EXPECT_EQ(*text, nullptr);
  FTM_ExitCleanUp(); // nothing is freed twice
}

TEST_F(OperationFile, HooksWithoutATaskDoNothing) {
  EXPECT_EQ(FtmActionThrPutTst(nullptr), 0);
  FtmActionExitThrPutTst();
  FtmActionMultiHybridTst();
  FtmActionExitMultiHybridTst();
  FtmActionAutoPairTst();
  FtmActionExitAutoPairTst();
  FtmActionTPutREADY();
  FtmActionTPutNOT_READY();
  FtmActionReSync();
  FtmActionReboot();
  FtmActionRbSaveBoot();
  FtmActionVpiVciSys(1, 8, 36);
  EXPECT_EQ(unFtmState.usWd, 0);
  EXPECT_THAT(journal(), IsEmpty());
}
