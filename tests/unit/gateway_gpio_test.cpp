// The simulated board's I/O points, as their driver's callers and the unit's panel see them.
#include <gmock/gmock.h>

#include <cerrno>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include <fcntl.h>

#include "platform/board.h"
#include "platform/gpioctrl.h"
#include "simulator/drivers/gpio.h"
#include "simulator/drivers/line.h"
#include "simulator/drivers/scsi.h"
#include "simulator/drivers/wireless.h"
#include "simulator/unit.h"
#include "tests/unit/bench_unit.h"
#include "tests/unit/device_lines.h"

using gateway::LineState;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class Gpio : public BenchUnit {
protected:
  Gpio() : m_descriptor(board_open(gpioDevice, O_RDWR)) {}
  ~Gpio() override { board_close(m_descriptor); }

  /// Result of a request; -errno when it failed. `data` gets what the driver left in the record.
  int request(unsigned long number, int point, int value, int* data = nullptr) const {
    led_gpio_readwrite io{point, value};
    const int result = board_ioctl(m_descriptor, number, &io) < 0 ? -errno : 0;
    if (data != nullptr)
      *data = io.iData;
    return result;
  }
  int request(unsigned long number) const { return board_ioctl(m_descriptor, number, nullptr) < 0 ? -errno : 0; }

  int read(int point) const {
    int data = -1;
    EXPECT_EQ(request(GPIOCTRL_READIO, point, -1, &data), 0) << point;
    return data;
  }
  int write(int point, int value) const { return request(GPIOCTRL_WRITEIO, point, value); }
  void enterTestMode() const { ASSERT_EQ(request(GPIOCTRL_ENTERFTM, 0, 0), 0); }
  void leaveTestMode() const { ASSERT_EQ(request(GPIOCTRL_EXITFTM, 0, 0), 0); }

  static std::vector<gateway::GpioPoint> points() { return gateway::gpioPoints(unit().database()); }

  /// The names of all LEDs that are lit.
  static std::set<std::string> lit() {
    std::set<std::string> names;
    for (const auto& point : points())
      if (point.kind == "led" && point.isOn)
        names.insert(point.name);
    return names;
  }

  static void setLine(LineState state) { gateway::setLineState(unit().database(), state); }

  const int m_descriptor;
};

TEST_F(Gpio, BoardHasAllPointsByNumberAndName) {
  std::set<std::string> names;
  int next = eInvalidLed + 1;
  for (const auto& point : points()) {
    EXPECT_EQ(point.number, next++);
    names.insert(point.name);
  }
  EXPECT_EQ(next, eMaxUserIOPoint);
  EXPECT_EQ(names.size(), static_cast<std::size_t>(eMaxUserIOPoint - 1));
}

TEST_F(Gpio, NamedPointsAreWhatTheirNamesSay) {
  std::map<int, std::pair<std::string, std::string>> found;
  for (const auto& point : points())
    found[point.number] = {point.name, point.kind};
  const std::map<int, std::pair<std::string, std::string>> expected = {{ePowerGrnLed, {"ePowerGrnLed", "led"}},
                                                                       {eDSLGrnLed, {"eDSLGrnLed", "led"}},
                                                                       {eDSLRedLed, {"eDSLRedLed", "led"}},
                                                                       {eUSBGrnLed, {"eUSBGrnLed", "led"}},
                                                                       {eEth0GrnLed, {"eEth0GrnLed", "led"}},
                                                                       {eVoiceRly1, {"eVoiceRly1", "relay"}},
                                                                       {eVoiceRly2, {"eVoiceRly2", "relay"}},
                                                                       {eResetSwInput, {"eResetSwInput", "input"}},
                                                                       {eDSLPair, {"eDSLPair", "output"}},
                                                                       {eECLed, {"eECLed", "led"}},
                                                                       {eECSetupSwInput, {"eECSetupSwInput", "input"}}};
  for (const auto& [number, point] : expected)
    EXPECT_EQ(found[number], point) << number;
}

// Outside factory test mode.

TEST_F(Gpio, LedsOfAnIdleUnitShowPowerLinePortsAndRadio) {
  EXPECT_THAT(lit(), ElementsAre("eDSLGrnLed", "eEth0GrnLed", "eInternetGrnLed", "ePowerGrnLed", "eWirelessGrnLed"));
}

TEST_F(Gpio, ReadyIsGreenWhileTheLineIsUpAndRedWhileItTrains) {
  setLine(LineState::up);
  EXPECT_EQ(read(eDSLGrnLed), 1);
  EXPECT_EQ(read(eDSLRedLed), 0);
  setLine(LineState::down);
  EXPECT_EQ(read(eDSLGrnLed), 0);
  EXPECT_EQ(read(eDSLRedLed), 0);
  setLine(LineState::training);
  EXPECT_EQ(read(eDSLGrnLed), 0);
  EXPECT_EQ(read(eDSLRedLed), 1);
  board_usleep(gateway::lineTrainingMs * 1000);
  EXPECT_EQ(read(eDSLGrnLed), 1);
  EXPECT_EQ(read(eDSLRedLed), 0);
}

TEST_F(Gpio, InternetIsLitWhileTheLineIsUpAndHasItsCircuit) {
  EXPECT_EQ(lit().count("eInternetGrnLed"), 1U);
  setLine(LineState::training);
  EXPECT_EQ(lit().count("eInternetGrnLed"), 0U);
  setLine(LineState::up);
  unit().clearTable("VccStat");
  EXPECT_EQ(lit().count("eInternetGrnLed"), 0U);
}

TEST_F(Gpio, EthernetLedsFollowTheirPorts) {
  for (int port = 0; port < 4; ++port) {
    unit().setCell("SwitchStat", port, "Link", "up");
    EXPECT_EQ(read(eEth0GrnLed + port), 1) << port;
    unit().setCell("SwitchStat", port, "Link", "down");
    EXPECT_EQ(read(eEth0GrnLed + port), 0) << port;
  }
}

TEST_F(Gpio, WirelessLedFollowsTheRadio) {
  gateway::setRadioPower(unit(), false);
  EXPECT_EQ(lit().count("eWirelessGrnLed"), 0U);
  gateway::setRadioPower(unit(), true);
  EXPECT_EQ(lit().count("eWirelessGrnLed"), 1U);
}

TEST_F(Gpio, UsbLedIsLitWhileADeviceIsPluggedIn) {
  EXPECT_EQ(read(eUSBGrnLed), 0);
  gateway::plugUsb(unit(), {"Vendor", "Stick", "1.00"});
  EXPECT_EQ(read(eUSBGrnLed), 1);
  gateway::unplugUsb(unit());
  EXPECT_EQ(read(eUSBGrnLed), 0);
}

TEST_F(Gpio, AnLedThatIsWrittenOutsideTestModeGoesOnShowingTheUnit) {
  EXPECT_EQ(write(ePowerGrnLed, 0), 0);
  EXPECT_EQ(read(ePowerGrnLed), 1);
}

// Inside it.

TEST_F(Gpio, LedsKeepWhatTheyShowedWhenTestModeIsEntered) {
  const auto before = lit();
  enterTestMode();
  setLine(LineState::down);
  EXPECT_TRUE(gateway::isInTestMode(unit().database()));
  EXPECT_EQ(lit(), before);
}

TEST_F(Gpio, LedsHoldWhatTheStationSetUntilTestModeIsLeft) {
  enterTestMode();
  EXPECT_EQ(write(eDSLGrnLed, 0), 0);
  EXPECT_EQ(write(eECLed, 1), 0);
  setLine(LineState::down);
  setLine(LineState::up);
  enterTestMode(); // once more changes nothing
  EXPECT_EQ(read(eDSLGrnLed), 0);
  EXPECT_EQ(read(eECLed), 1);
  leaveTestMode();
  EXPECT_FALSE(gateway::isInTestMode(unit().database()));
  EXPECT_EQ(read(eDSLGrnLed), 1);
  EXPECT_EQ(read(eECLed), 0);
}

TEST_F(Gpio, AnyValueButZeroLightsAnLed) {
  enterTestMode();
  EXPECT_EQ(write(eECLed, -7), 0);
  EXPECT_EQ(read(eECLed), 1);
}

TEST_F(Gpio, AllLedsSwitchesLedsAndNothingElse) {
  enterTestMode();
  EXPECT_EQ(request(GPIOCTRL_ALLLEDS_ON), 0);
  for (const auto& point : points())
    EXPECT_EQ(point.isOn, point.kind == "led") << point.name;
  gateway::setInput(unit().database(), eResetSwInput, true);
  write(eVoiceRly1, 1);
  EXPECT_EQ(request(GPIOCTRL_ALLLEDS_OFF), 0);
  EXPECT_THAT(lit(), IsEmpty());
  EXPECT_EQ(read(eResetSwInput), 1);
  EXPECT_EQ(read(eVoiceRly1), 1);
}

TEST_F(Gpio, RelaysAndThePairStayWhereTheyAreWhenTestModeIsLeft) {
  enterTestMode();
  for (const eUserIOPoint point : {eVoiceRly1, eVoiceRly2, eDSLPair})
    EXPECT_EQ(write(point, 1), 0);
  leaveTestMode();
  for (const eUserIOPoint point : {eVoiceRly1, eVoiceRly2, eDSLPair})
    EXPECT_EQ(read(point), 1) << point;
}

// Inputs.

TEST_F(Gpio, AnInputCannotBeWritten) {
  enterTestMode();
  EXPECT_EQ(write(eResetSwInput, 1), -EPERM);
  EXPECT_EQ(read(eResetSwInput), 0);
}

TEST_F(Gpio, AnInputIsClosedByWhoeverPressesIt) {
  gateway::setInput(unit().database(), eECSetupSwInput, true);
  EXPECT_EQ(read(eECSetupSwInput), 1);
  EXPECT_EQ(read(eResetSwInput), 0);
  gateway::setInput(unit().database(), eECSetupSwInput, false);
  EXPECT_EQ(read(eECSetupSwInput), 0);
}

TEST_F(Gpio, OnlyAnInputCanBePressed) {
  EXPECT_THROW(gateway::setInput(unit().database(), ePowerGrnLed, true), std::runtime_error);
  EXPECT_THROW(gateway::setInput(unit().database(), eMaxUserIOPoint, true), std::runtime_error);
}

// What the driver refuses.

TEST_F(Gpio, APointThatTheBoardLacksIsRefused) {
  for (const int point : {0, 73, 100, -1}) {
    EXPECT_EQ(write(point, 1), -EINVAL) << point;
    int data = 5;
    EXPECT_EQ(request(GPIOCTRL_READIO, point, 5, &data), -EINVAL) << point;
    EXPECT_EQ(data, 5);
  }
}

TEST_F(Gpio, ARequestWithoutItsRecordIsRefused) {
  for (const unsigned long number : {GPIOCTRL_READIO, GPIOCTRL_WRITEIO, GPIOCTRL_ENTERFTM, GPIOCTRL_EXITFTM})
    EXPECT_EQ(request(number), -EFAULT) << number;
  EXPECT_FALSE(gateway::isInTestMode(unit().database()));
}

TEST_F(Gpio, AnUnknownRequestIsRefusedAndItsArgumentNotLookedAt) {
  char oneByte = 0;
  EXPECT_LT(board_ioctl(m_descriptor, 13, &oneByte), 0);
  EXPECT_EQ(errno, ENOTTY);
  EXPECT_THAT(journal(), ElementsAre("request /dev/gpioctrl 13 failed: ENOTTY"));
}

TEST_F(Gpio, ReadShowsItsAnswerInTheJournal) {
  read(ePowerGrnLed);
  EXPECT_THAT(journal(), ElementsAre(gpioRequest(GPIOCTRL_READIO, 1, 1)));
}

TEST_F(Gpio, RebootEndsTestModeAndOpensAllOutputs) {
  const std::set<std::string> before = lit();
  enterTestMode();
  request(GPIOCTRL_ALLLEDS_ON);
  for (const int point : {int{eVoiceRly1}, int{eDSLPair}})
    ASSERT_EQ(write(point, 1), 0);
  gateway::setInput(unit().database(), eResetSwInput, true);

  unit().reboot();

  EXPECT_FALSE(gateway::isInTestMode(unit().database()));
  EXPECT_EQ(lit(), before);
  EXPECT_EQ(read(eVoiceRly1), 0);
  EXPECT_EQ(read(eDSLPair), 0);
  EXPECT_EQ(read(eResetSwInput), 1);
}

} // namespace
