#include <gmock/gmock.h>

#include <array>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/gpioctrl.h"
#include "simulator/drivers/gpio.h"
#include "simulator/unit.h"
#include "tests/unit/bench_unit.h"
#include "tests/unit/device_lines.h"
#include "tests/unit/virtual_files.h"
#include "userapps/FTM/FTM_Apis.h"
#include "userapps/FTM/FTM_App.h"
#include "userapps/FTM/FTM_Handles.h"
#include "userapps/FTM/FTM_Tags.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::vector<unsigned long> requests;             ///< to the driver, in order
std::optional<led_gpio_readwrite> driversRecord; ///< what the driver makes of the record on entering test mode

} // namespace

// The linker puts this in front of the platform's function.
extern "C" int __real_board_ioctl(int descriptor, unsigned long request, void* argument);
extern "C" int __wrap_board_ioctl(int descriptor, unsigned long request, void* argument);
extern "C" int __wrap_board_ioctl(int descriptor, unsigned long request, void* argument) {
  requests.push_back(request);
  const int result = __real_board_ioctl(descriptor, request, argument);
  if (request == GPIOCTRL_ENTERFTM && driversRecord.has_value())
    *static_cast<led_gpio_readwrite*>(argument) = *driversRecord;
  return result;
}

namespace {

class Leds : public BenchUnit {
protected:
  Leds() {
    unFtmState.usWd = 0;
    FTM_ClrErrorTFTP();
    requests.clear();
  }
  ~Leds() override {
    driversRecord.reset();
    FTM_ExitCleanUp();
    destroy_xml_object(pstTestModeCfgElmt);
    pstTestModeCfgElmt = nullptr;
  }

  struct Outcome {
    int result;
    std::string output;
    std::vector<std::string> lines;
    bool operator==(const Outcome&) const = default;
    friend void PrintTo(const Outcome& outcome, std::ostream* out) {
      *out << outcome.result << '\n' << outcome.output << testing::PrintToString(outcome.lines);
    }
  };

  /// Result, standard output and new journal lines of an operation.
  static Outcome run(const std::function<int()>& operation) {
    const std::size_t before = journal().size();
    testing::internal::CaptureStdout();
    const int result = operation();
    std::string output = testing::internal::GetCapturedStdout();
    std::vector<std::string> lines = journal();
    lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(before));
    return {result, std::move(output), std::move(lines)};
  }

  /// Text of an element of the test configuration file's tree as it stands.
  static std::string shown(const char* section, const char* name) {
    const ST_XML_ELEMENT* element = GetElmtPtr(TestModeCfgTree(), "TEST_CONFIG", section, name);
    return element == nullptr ? "no element" : GetTextBody(element);
  }

  /// The six LEDs in the order of a refresh, then both buttons.
  static std::vector<std::string> shownByTheFile() {
    std::vector<std::string> texts;
    for (const ST_FTM_LED& led : stFtmLeds)
      texts.push_back(shown("LED", led.pszName));
    texts.push_back(shown("RESET_SWITCH", "RESET_SW_STATUS"));
    texts.push_back(shown("WPS_SWITCH", "WPS_SW_STATUS"));
    return texts;
  }
};

// Writing.

TEST_F(Leds, AllLedsOffEntersTestModeFirst) {
  EXPECT_EQ(run([] { return ledTest(100, 0); }),
            (Outcome{0,
                     "eUserIOPoint = 100\nioctl  iGpioCtl= 11\n",
                     {gpioRequest(GPIOCTRL_ENTERFTM, 100, 0), gpioRequest(GPIOCTRL_ALLLEDS_OFF)}}));
}

TEST_F(Leds, AllLedsOnEntersTestModeFirst) {
  EXPECT_EQ(run([] { return ledTest(100, 1); }),
            (Outcome{0,
                     "eUserIOPoint = 100\nioctl  iGpioCtl= 12\n",
                     {gpioRequest(GPIOCTRL_ENTERFTM, 100, 1), gpioRequest(GPIOCTRL_ALLLEDS_ON)}}));
}

TEST_F(Leds, AnySettingButZeroAnd99SwitchesAllLedsOn) {
  EXPECT_EQ(run([] { return ledTest(100, 7); }),
            (Outcome{0,
                     "eUserIOPoint = 100\nioctl  iGpioCtl= 12\n",
                     {gpioRequest(GPIOCTRL_ENTERFTM, 100, 7), gpioRequest(GPIOCTRL_ALLLEDS_ON)}}));
}

TEST_F(Leds, Setting99OnlyLeavesTestMode) {
  EXPECT_EQ(run([] { return ledTest(100, 99); }),
            (Outcome{0, "eUserIOPoint = 100\n", {gpioRequest(GPIOCTRL_EXITFTM, 100, 99)}}));
}

TEST_F(Leds, Setting99LeavesTestModeWhateverThePoint) {
  EXPECT_EQ(run([] { return ledTest(3, 99); }),
            (Outcome{0, "eUserIOPoint = 3\n", {gpioRequest(GPIOCTRL_EXITFTM, 3, 99)}}));
}

TEST_F(Leds, ASinglePointIsWrittenInTestMode) {
  EXPECT_EQ(
      run([] { return ledTest(3, 1); }),
      (Outcome{0, "eUserIOPoint = 3\n", {gpioRequest(GPIOCTRL_ENTERFTM, 3, 1), gpioRequest(GPIOCTRL_WRITEIO, 3, 1)}}));
}

TEST_F(Leds, EveryWriteEntersTestModeAgain) {
  ledTest(8, 1);
  EXPECT_EQ(run([] { return ledTest(8, 0); }).lines,
            (std::vector{gpioRequest(GPIOCTRL_ENTERFTM, 8, 0), gpioRequest(GPIOCTRL_WRITEIO, 8, 0)}));
}

TEST_F(Leds, WhatIsWrittenDoesNotGoByARecordThatTheDriverChanged) {
  driversRecord = {3, 0};
  ledTest(100, 1);
  EXPECT_THAT(requests, ElementsAre(GPIOCTRL_ENTERFTM, GPIOCTRL_ALLLEDS_ON));
  requests.clear();
  driversRecord = {3, 1};
  ledTest(100, 0);
  EXPECT_THAT(requests, ElementsAre(GPIOCTRL_ENTERFTM, GPIOCTRL_ALLLEDS_OFF));
  requests.clear();
  driversRecord = {100, 1};
  ledTest(3, 1);
  EXPECT_THAT(requests, ElementsAre(GPIOCTRL_ENTERFTM, GPIOCTRL_WRITEIO));
}

// Writing with a failing driver: nothing is tried after the failure.

TEST_F(Leds, WriteWithoutTheDriverIsReportedAndDrivesNothing) {
  unit().setFault(noGpio, true);
  for (const unsigned int setting : {0U, 1U, 99U})
    EXPECT_EQ(run([setting] { return ledTest(3, setting); }),
              (Outcome{-1, "eUserIOPoint = 3\nCannot open gpio driver\n", {errorLine("Cannot open gpio driver")}}));
}

TEST_F(Leds, WriteThatCannotEnterTestModeDrivesNothing) {
  unit().setFault(gpioFault(GPIOCTRL_ENTERFTM), true);
  EXPECT_EQ(run([] { return ledTest(3, 1); }),
            (Outcome{-1,
                     "eUserIOPoint = 3\nGPIOCTRL_ENTERFTM ioctl failed\n",
                     {gpioRequest(GPIOCTRL_ENTERFTM, 3, 1) + failed, errorLine("GPIOCTRL_ENTERFTM ioctl failed")}}));
}

TEST_F(Leds, LeavingTestModeThatFailsIsReported) {
  unit().setFault(gpioFault(GPIOCTRL_EXITFTM), true);
  EXPECT_EQ(run([] { return ledTest(100, 99); }),
            (Outcome{-1,
                     "eUserIOPoint = 100\nGPIOCTRL_EXITFTM ioctl failed\n",
                     {gpioRequest(GPIOCTRL_EXITFTM, 100, 99) + failed, errorLine("GPIOCTRL_EXITFTM ioctl failed")}}));
}

TEST_F(Leds, APointThatCannotBeWrittenIsReported) {
  unit().setFault(gpioFault(GPIOCTRL_WRITEIO), true);
  EXPECT_EQ(run([] { return ledTest(3, 1); }),
            (Outcome{-1,
                     "eUserIOPoint = 3\nGPIOCTRL_WRITEIO ioctl failed\n",
                     {gpioRequest(GPIOCTRL_ENTERFTM, 3, 1), gpioRequest(GPIOCTRL_WRITEIO, 3, 1) + failed,
                      errorLine("GPIOCTRL_WRITEIO ioctl failed")}}));
}

TEST_F(Leds, AllLedsThatCannotBeSwitchedAreReportedAsAWrite) {
  unit().setFault(gpioFault(GPIOCTRL_ALLLEDS_ON), true);
  EXPECT_EQ(run([] { return ledTest(100, 1); }),
            (Outcome{-1,
                     "eUserIOPoint = 100\nioctl  iGpioCtl= 12\nGPIOCTRL_WRITEIO ioctl failed\n",
                     {gpioRequest(GPIOCTRL_ENTERFTM, 100, 1), gpioRequest(GPIOCTRL_ALLLEDS_ON) + failed,
                      errorLine("GPIOCTRL_WRITEIO ioctl failed")}}));
}

TEST_F(Leds, AnInputOrAPointThatTheBoardLacksCannotBeWritten) {
  const std::pair<int, const char*> refusals[] = {
      {0, "EINVAL"}, {32, "EPERM"}, {43, "EPERM"}, {73, "EINVAL"}, {255, "EINVAL"}};
  for (const auto& [point, error] : refusals)
    EXPECT_EQ(run([number = static_cast<unsigned int>(point)] { return ledTest(number, 1); }),
              (Outcome{-1,
                       "eUserIOPoint = " + std::to_string(point) + "\nGPIOCTRL_WRITEIO ioctl failed\n",
                       {gpioRequest(GPIOCTRL_ENTERFTM, point, 1),
                        gpioRequest(GPIOCTRL_WRITEIO, point, 1) + " failed: " + error,
                        errorLine("GPIOCTRL_WRITEIO ioctl failed")}}));
}

TEST_F(Leds, AFailedWriteSetsNoErrorForTheStation) {
  unit().setFault(noGpio, true);
  ledTest(3, 1);
  getLedState(3);
  EXPECT_EQ(recordedMessage(), "");
}

// Reading.

TEST_F(Leds, StateIsReadWithOneRequest) {
  EXPECT_EQ(run([] { return getLedState(ePowerGrnLed); }), (Outcome{1, "", {gpioRequest(GPIOCTRL_READIO, 1, 1)}}));
}

TEST_F(Leds, StateReadsBackWhatWasWritten) {
  ledTest(12, 1);
  EXPECT_EQ(getLedState(12), 1);
  ledTest(12, 0);
  EXPECT_EQ(getLedState(12), 0);
}

TEST_F(Leds, StateWithoutTheDriverIsLoggedButNotPrinted) {
  unit().setFault(noGpio, true);
  EXPECT_EQ(run([] { return getLedState(3); }), (Outcome{-1, "", {errorLine("Cannot open gpio driver")}}));
}

TEST_F(Leds, StateThatCannotBeReadIsLoggedButNotPrinted) {
  unit().setFault(gpioFault(GPIOCTRL_READIO), true);
  EXPECT_EQ(
      run([] { return getLedState(3); }),
      (Outcome{-1, "", {gpioRequest(GPIOCTRL_READIO, 3, 0) + failed, errorLine("GPIOCTRL_READIO ioctl failed")}}));
}

TEST_F(Leds, ButtonsAreReadFromTheirPoints) {
  EXPECT_EQ(run(getResetButtonBsp), (Outcome{0, "", {gpioRequest(GPIOCTRL_READIO, 32, 0)}}));
  EXPECT_EQ(run(getWpsButtonBsp), (Outcome{0, "", {gpioRequest(GPIOCTRL_READIO, 43, 0)}}));
  gateway::setInput(unit().database(), eResetSwInput, true);
  EXPECT_EQ(getResetButtonBsp(), 1);
  EXPECT_EQ(getWpsButtonBsp(), 0);
}

TEST_F(Leds, ButtonsWithoutTheDriverOrWithAFailedReadAreMinusOne) {
  unit().setFault(noGpio, true);
  EXPECT_EQ(run(getResetButtonBsp), (Outcome{-1, "", {errorLine("Cannot open gpio driver")}}));
  EXPECT_EQ(run(getWpsButtonBsp), (Outcome{-1, "", {errorLine("Cannot open gpio driver")}}));
  unit().setFault(noGpio, false);
  unit().setFault(gpioFault(GPIOCTRL_READIO), true);
  EXPECT_EQ(getResetButtonBsp(), -1);
  EXPECT_EQ(getWpsButtonBsp(), -1);
}

// What the test configuration file shows.

TEST_F(Leds, RefreshReadsTheLedsAndThenTheButtonsInOrder) {
  FtmUpdLedsAndButtons();
  std::vector<std::string> points;
  for (const std::string& line : journal())
    points.push_back(line.substr(0, line.find(" data=")));
  std::vector<std::string> expected;
  for (const int point : {1, 3, 4, 8, 42, 12, 32, 43})
    expected.push_back(gpioRequest(GPIOCTRL_READIO) + " point=" + std::to_string(point));
  EXPECT_EQ(points, expected);
}

TEST_F(Leds, FileShowsEachPointUnderItsOwnName) {
  const std::vector<unsigned int> points = {1, 3, 4, 8, 42, 12};
  for (std::size_t lit = 0; lit < points.size(); ++lit) {
    ledTest(100, 0);
    ledTest(points[lit], 1);
    FtmUpdLedsAndButtons();
    std::vector<std::string> expected(points.size(), "OFF");
    expected[lit] = "ON";
    expected.insert(expected.end(), {"OPEN", "OPEN"});
    EXPECT_EQ(shownByTheFile(), expected) << points[lit];
  }
}

TEST_F(Leds, FileShowsTheSessionLedFromThePowerPoint) {
  FtmUpdLedsAndButtons();
  EXPECT_EQ(shown("LED", "SESSION_LED"), "ON");
  ledTest(1, 0);
  FtmUpdLedsAndButtons();
  EXPECT_EQ(shown("LED", "SESSION_LED"), "OFF");
}

TEST_F(Leds, FileShowsEveryLedOnAndBothButtonsClosedWithoutTheDriver) {
  ledTest(100, 0);
  unit().setFault(noGpio, true);
  ASSERT_NE(TFTP_processGetTestModeCfg(), nullptr);
  EXPECT_THAT(shownByTheFile(), ElementsAre("ON", "ON", "ON", "ON", "ON", "ON", "CLOSED", "CLOSED"));
}

TEST_F(Leds, FileShowsAnUnreadableDriverAsOnAndClosed) {
  ledTest(100, 0);
  unit().setFault(gpioFault(GPIOCTRL_READIO), true);
  FtmUpdLedsAndButtons();
  EXPECT_THAT(shownByTheFile(), ElementsAre("ON", "ON", "ON", "ON", "ON", "ON", "CLOSED", "CLOSED"));
}

TEST_F(Leds, FileShowsAPressedButtonAsClosedUntilItIsReleased) {
  gateway::setInput(unit().database(), eResetSwInput, true);
  EXPECT_EQ(FtmUpdRsSw(), 0);
  EXPECT_EQ(FtmUpdWpsSw(), 0);
  EXPECT_EQ(shown("RESET_SWITCH", "RESET_SW_STATUS"), "CLOSED");
  EXPECT_EQ(shown("WPS_SWITCH", "WPS_SW_STATUS"), "OPEN");
  gateway::setInput(unit().database(), eResetSwInput, false);
  FtmUpdRsSw();
  EXPECT_EQ(shown("RESET_SWITCH", "RESET_SW_STATUS"), "OPEN");
}

TEST_F(Leds, UpdatesReadTheButtonBeforeTheyMissTheirElement) {
  ST_XML_ELEMENT* config = GetElement(TestModeCfgTree(), "TEST_CONFIG");
  RemoveElements(config, "RESET_SWITCH");
  RemoveElements(config, "WPS_SWITCH");
  EXPECT_EQ(run(FtmUpdRsSw), (Outcome{-1, "", {gpioRequest(GPIOCTRL_READIO, 32, 0)}}));
  EXPECT_EQ(run(FtmUpdWpsSw), (Outcome{-1, "", {gpioRequest(GPIOCTRL_READIO, 43, 0)}}));
  EXPECT_EQ(recordedMessage(), "Xml File InValid");
}

TEST_F(Leds, WrappersSetTheirOwnElementAndTouchNoHardware) {
  const std::array<std::pair<int (*)(int), const char*>, 7> wrappers = {{{FtmActionSESSION_LED, "SESSION_LED"},
                                                                         {FtmActionREADY_GREEN_LED, "READY_GREEN_LED"},
                                                                         {FtmActionREADY_RED_LED, "READY_RED_LED"},
                                                                         {FtmActionETHER_LED, "ETHER_LED"},
                                                                         {FtmActionUSB_LED, "USB_LED"},
                                                                         {FtmActionWPS_LED, "WPS_LED"},
                                                                         {FtmActionLED_ALL, "ALL_LEDS"}}};
  for (const auto& [wrapper, name] : wrappers) {
    EXPECT_EQ(wrapper(0), 0) << name;
    EXPECT_EQ(shown("LED", name), "OFF");
    EXPECT_EQ(wrapper(-1), 0) << name;
    EXPECT_EQ(shown("LED", name), "ON");
  }
  EXPECT_THAT(journal(), IsEmpty());
}

TEST_F(Leds, AnUnknownElementIsRefused) {
  EXPECT_EQ(FtmAction_LED(1, "WAN_LED"), -1);
  EXPECT_EQ(recordedMessage(), "Xml File InValid");
}

TEST_F(Leds, BlinkShowsItsTextAsGiven) {
  EXPECT_EQ(FtmActionLED_Blink(" blink "), 0);
  EXPECT_EQ(shown("LED", "ALL_LEDS"), " blink ");
  EXPECT_THAT(journal(), IsEmpty());
}

TEST_F(Leds, ThereIsNoMocaLed) {
  EXPECT_EQ(FtmMocaAction_LED("ON", "MOCA_LED"), -1);
  EXPECT_EQ(MocaLedSetCtl(1, 1, 1), -1);
  EXPECT_THAT(journal(), IsEmpty());
}

TEST_F(Leds, StoreColumnIsWrittenInTheCallersTransaction) {
  const StoreSession session(CFG_ROLE_WEB_GUI, "FTM write");
  ASSERT_EQ(cfg_startTransaction(session.get()), 0);
  EXPECT_EQ(ledTestCM(session.get(), "Power", "ON"), 0);
  ASSERT_EQ(cfg_commitTransaction(session.get()), 0);
  EXPECT_EQ(unit().cell("LedTable", 0, "Power"), "ON");
}

TEST_F(Leds, StoreColumnThatDoesNotExistIsAFailedWrite) {
  const StoreSession session(CFG_ROLE_WEB_GUI, "FTM write");
  ASSERT_EQ(cfg_startTransaction(session.get()), 0);
  EXPECT_EQ(ledTestCM(session.get(), "NoSuchLed", "ON"), -1);
  EXPECT_EQ(recordedMessage(), "Write data failed");
  cfg_abortTransaction(session.get());
}

} // namespace
