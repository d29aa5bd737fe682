// Ethernet ports: speed, activity and the conversion of rates.
#include <gmock/gmock.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "simulator/database.h"
#include "tests/unit/bench_unit.h"
#include "tests/unit/store_calls.h"
#include "tests/unit/virtual_files.h"
#include "userapps/FTM/FTM_Apis.h"
#include "userapps/FTM/FTM_App.h"
#include "userapps/FTM/FTM_Handles.h"
#include "userapps/FTM/FTM_Tags.h"

namespace {

constexpr const char* sessionFault = "session";
constexpr const char* socketFault = "socket";
constexpr const char* switchFault = "table SwitchStat";
constexpr const char* flagsFault = "request socket 0x8913";
constexpr const char* linkFault = "request socket 0x89f1";
constexpr const char* speedFault = "request socket 0x8a01";

// The switch row behind eth0, which the fallback to the store does not look at.
constexpr int eth0Row = 4;
constexpr int interfaceUp = 0x1;
constexpr int interfaceRunning = 0x40;

class EthernetPorts : public BenchUnit {
protected:
  EthernetPorts() {
    FTM_ClrErrorTFTP();
    std::memset(cSpeed, 0, sizeof cSpeed);
    for (int row = 0; row < 5; ++row)
      setPort(row, "down", "0");
    storeCalls.clear();
  }
  ~EthernetPorts() override { destroy_xml_object(std::exchange(pstTestModeCfgElmt, nullptr)); }

  static void setPort(int row, std::string_view link, std::string_view megabits) {
    unit().setCell("SwitchStat", row, "Link", link);
    unit().setCell("SwitchStat", row, "Speed", megabits);
  }

  static void setFlags(const char* interface, int flags) {
    gateway::execute(unit().database(), "UPDATE net_devices SET flags = ? WHERE name = ?", flags, interface);
  }

  static std::string portSpeed() {
    const char* text = XML_FTM_PortSpeed();
    return text != nullptr ? text : "none";
  }
};

using EthernetPortsDeathTest = EthernetPorts;

// Speed of a port.

TEST_F(EthernetPorts, SpeedIsTheDriversAnswerInBits) {
  setPort(eth0Row, "up", "100");
  unsigned long speed = 0;
  EXPECT_GE(EthernetSpeedGet(0, &speed), 0);
  EXPECT_EQ(speed, 100'000'000UL);
}

TEST_F(EthernetPorts, SpeedIsAskedOnASocketOfItsOwn) {
  setPort(eth0Row, "up", "100");
  unsigned long speed = 0;
  EthernetSpeedGet(0, &speed);
  EXPECT_THAT(journal("request"), testing::ElementsAre("socket 0x8a01 eth0 100000000"));
}

TEST_F(EthernetPorts, PortNumberNamesTheInterface) {
  unsigned long speed = 0;
  EthernetSpeedGet(1, &speed);
  EthernetSpeedGet(65535, &speed);
  EXPECT_THAT(journal("request"), testing::ElementsAre(testing::HasSubstr("eth1"), testing::HasSubstr("eth65535")));
}

TEST_F(EthernetPorts, FailedSpeedRequestIsLoggedAndLeavesTheSpeed) {
  unit().setFault(speedFault, true);
  unsigned long speed = 7;
  EXPECT_LT(EthernetSpeedGet(0, &speed), 0);
  EXPECT_EQ(speed, 7UL);
  EXPECT_THAT(journal("log"), testing::ElementsAre(testing::HasSubstr("Get SIOCCURRENTSPEED ioctl failed")));
}

TEST_F(EthernetPortsDeathTest, SpeedWithoutASocketEndsTheProcess) {
  unit().setFault(socketFault, true);
  const auto end = [] {
    std::atexit([] { std::fputs(journal("log").back().c_str(), stderr); });
    unsigned long speed = 0;
    EthernetSpeedGet(0, &speed);
  };
  EXPECT_EXIT(end(), testing::ExitedWithCode(255), "^err FTM Cannot open socket$");
}

struct SpeedText {
  const char* megabits;
  const char* text;
};

class PortSpeedTexts : public EthernetPorts, public testing::WithParamInterface<SpeedText> {};

TEST_P(PortSpeedTexts, AreMegabitsOnlyForTheTwoKnownSpeeds) {
  setPort(eth0Row, "up", GetParam().megabits);
  EXPECT_EQ(portSpeed(), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(All, PortSpeedTexts,
                         testing::Values(SpeedText{"10", "10"}, SpeedText{"100", "100"},
                                         SpeedText{"1000", "1000000000"}, SpeedText{"25", "25000000"},
                                         SpeedText{"-2000", "-2000000000"}),
                         [](const auto& row) { return "Case" + std::to_string(row.index); });

TEST_F(EthernetPorts, SpeedTextLivesInTheSharedBuffer) {
  setPort(eth0Row, "up", "1000");
  EXPECT_EQ(XML_FTM_PortSpeed(), cSpeed);
}

// Fallback to the store.

TEST_F(EthernetPorts, WithoutASpeedTheLastSwitchPortThatIsUpGivesIt) {
  setPort(1, "up", "10");
  setPort(3, "up", "100");
  EXPECT_EQ(portSpeed(), "100");
}

TEST_F(EthernetPorts, TheSwitchIsReadInASessionOfItsOwn) {
  EXPECT_EQ(portSpeed(), "none");
  EXPECT_THAT(storeCalls, testing::ElementsAre("session 0", "end"));
  storeCalls.clear();
  unit().setFault(switchFault, true);
  EXPECT_EQ(portSpeed(), "none");
  EXPECT_THAT(storeCalls, testing::ElementsAre("session 0", "end"));
}

TEST_F(EthernetPorts, AFailedSpeedRequestFallsBackToTheSwitch) {
  setPort(eth0Row, "up", "1000");
  setPort(0, "up", "10");
  unit().setFault(speedFault, true);
  EXPECT_EQ(portSpeed(), "10");
}

TEST_F(EthernetPorts, NoPortUpGivesNoSpeed) {
  EXPECT_EQ(XML_FTM_PortSpeed(), nullptr);
}

TEST_F(EthernetPorts, TheFifthSwitchPortGivesNoSpeed) {
  setPort(4, "up", "100");
  char speed[switchSpeedSize + 1] = "";
  EXPECT_EQ(FtmGetSwitchSpeed(speed), -1);
}

TEST_F(EthernetPorts, LinkWordIsExactlyUp) {
  setPort(0, "UP", "100");
  setPort(1, "up ", "100");
  setPort(2, "", "100");
  EXPECT_EQ(portSpeed(), "none");
}

TEST_F(EthernetPorts, AtMostFiveCharactersOfASwitchSpeedAreTaken) {
  setPort(2, "up", "12345678");
  char speed[8];
  std::memset(speed, '#', sizeof speed);
  EXPECT_EQ(FtmGetSwitchSpeed(speed), 0);
  EXPECT_EQ(std::string(speed, sizeof speed), "12345###");
}

TEST_F(EthernetPorts, NothingOfAnEarlierSpeedShowsBehindAnUnterminatedOne) {
  setPort(eth0Row, "up", "1000");
  EXPECT_EQ(portSpeed(), "1000000000");
  setPort(eth0Row, "down", "0");
  setPort(2, "up", "12345678");
  EXPECT_EQ(portSpeed(), "12345");
  setPort(3, "up", "10");
  EXPECT_EQ(portSpeed(), "10");
}

TEST_F(EthernetPorts, RowOfThatIsNotUpOrNotThereIsRefusedUntouched) {
  setPort(0, "up", "100");
  const StoreSession session(CFG_ROLE_MODEM, nullptr);
  const TableSnapshot ports(session.get(), "SwitchStat");
  char speed[switchSpeedSize + 1] = "old";
  for (const int row : {1, 5, -1, 1000000})
    EXPECT_EQ(GetSwitchSpeedStng(speed, row, ports.get()), -1) << row;
  EXPECT_STREQ(speed, "old");
  EXPECT_EQ(GetSwitchSpeedStng(speed, 0, ports.get()), 0);
  EXPECT_STREQ(speed, "100");
}

TEST_F(EthernetPorts, PortThatIsUpWithoutASpeedHasAnEmptyOne) {
  setPort(0, "up", "100");
  const StoreSession session(CFG_ROLE_MODEM, nullptr);
  const TableSnapshot ports(session.get(), "SwitchStat");
  constexpr int speedColumn = 1;
  ports.get()->aszCells[ports.get()->nCols + speedColumn] = nullptr;
  char speed[switchSpeedSize + 1] = "old";
  EXPECT_EQ(GetSwitchSpeedStng(speed, 0, ports.get()), 0);
  EXPECT_STREQ(speed, "");
}

TEST_F(EthernetPorts, WithoutASessionTheSwitchGivesNoSpeed) {
  unit().setFault(sessionFault, true);
  testing::internal::CaptureStderr();
  char speed[switchSpeedSize + 1] = "old";
  EXPECT_EQ(FtmGetSwitchSpeed(speed), -1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "error: failed to start session\n");
  EXPECT_EQ(recordedMessage(), szCrtXmlFail);
  EXPECT_STREQ(speed, "old");
}

TEST_F(EthernetPorts, AnUnreadableSwitchGivesNoSpeed) {
  unit().setFault(switchFault, true);
  testing::internal::CaptureStderr();
  char speed[switchSpeedSize + 1] = "old";
  EXPECT_EQ(FtmGetSwitchSpeed(speed), -1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "error: failed to read table: SwitchStat\n");
  EXPECT_EQ(recordedMessage(), szCrtXmlFail);
  EXPECT_STREQ(speed, "old");
}

TEST_F(EthernetPorts, AMissingSwitchRowGivesNoSpeed) {
  unit().clearTable("SwitchStat");
  EXPECT_EQ(portSpeed(), "none");
}

// Activity of a port.

TEST_F(EthernetPorts, ActivityIsTheLinkState) {
  setPort(eth0Row, "up", "100");
  EXPECT_EQ(FtmUpdateEthX("eth0"), 1);
  setPort(eth0Row, "down", "0");
  EXPECT_EQ(FtmUpdateEthX("eth0"), 0);
}

TEST_F(EthernetPorts, ActivityAsksFlagsThenLink) {
  setPort(eth0Row, "up", "100");
  FtmUpdateEthX("eth0");
  EXPECT_THAT(journal("request"), testing::ElementsAre("socket 0x8913 eth0 flags=0x1043", "socket 0x89f1 eth0 1"));
}

TEST_F(EthernetPorts, AnInterfaceThatIsUpButNotRunningIsStillAskedForItsLink) {
  setFlags("eth0", interfaceUp);
  EXPECT_EQ(FtmUpdateEthX("eth0"), 0);
  EXPECT_THAT(journal("request"), testing::ElementsAre("socket 0x8913 eth0 flags=0x0001", "socket 0x89f1 eth0 0"));
}

TEST_F(EthernetPorts, AnInterfaceThatIsRunningButNotUpIsAskedForItsLink) {
  setPort(eth0Row, "up", "100");
  setFlags("eth0", interfaceRunning);
  EXPECT_EQ(FtmUpdateEthX("eth0"), 1);
}

TEST_F(EthernetPorts, AnInterfaceThatIsNeitherUpNorRunningIsNotAsked) {
  setPort(eth0Row, "up", "100");
  setFlags("eth0", 0x1002);
  EXPECT_EQ(FtmUpdateEthX("eth0"), 0);
  EXPECT_EQ(journal("request").size(), 1U);
}

TEST_F(EthernetPorts, ActivityWithoutASocketIsLoggedAndZero) {
  setPort(eth0Row, "up", "100");
  unit().setFault(socketFault, true);
  EXPECT_EQ(FtmUpdateEthX("eth0"), 0);
  EXPECT_THAT(journal("log"), testing::ElementsAre(testing::HasSubstr("Cannot open AF_INET socket")));
}

TEST_F(EthernetPorts, UnreadableFlagsAreLoggedAndZero) {
  setPort(eth0Row, "up", "100");
  unit().setFault(flagsFault, true);
  EXPECT_EQ(FtmUpdateEthX("eth0"), 0);
  EXPECT_THAT(journal("log"), testing::ElementsAre(testing::HasSubstr("SIOCGIFFLAGS ioctl failed")));
}

TEST_F(EthernetPorts, AnUnreadableLinkIsZero) {
  setPort(eth0Row, "up", "100");
  unit().setFault(linkFault, true);
  EXPECT_EQ(FtmUpdateEthX("eth0"), 0);
}

TEST_F(EthernetPorts, ALongInterfaceNameIsCutToItsField) {
  EXPECT_EQ(FtmUpdateEthX(("a-name-of-more-than-sixteen-characters" + std::string(200, 'x')).c_str()), 0);
  EXPECT_THAT(journal("request"), testing::ElementsAre(testing::HasSubstr("a-name-of-more-t")));
  EXPECT_THAT(journal("request"), testing::Not(testing::ElementsAre(testing::HasSubstr("a-name-of-more-th"))));
}

// Rates.

std::string kilobits(const char* rate) {
  char text[kilobitTextSize];
  std::memset(text, '#', sizeof text);
  EXPECT_EQ(ftmConvertToKBS(rate, text), 0);
  return text;
}

TEST(EthernetRates, AreRightAlignedKilobitsWithThreeDecimals) {
  EXPECT_EQ(kilobits("0"), "     0.000");
  EXPECT_EQ(kilobits("8000"), "     8.000");
  EXPECT_EQ(kilobits("8128000"), "  8128.000");
  EXPECT_EQ(kilobits("-1500"), "    -1.500");
}

TEST(EthernetRates, AreRoundedInSinglePrecision) {
  EXPECT_EQ(kilobits("123456001"), "123456.000");
  EXPECT_EQ(kilobits("16777217"), " 16777.217");
  EXPECT_EQ(kilobits("2147483647"), "2147483.750");
}

TEST(EthernetRates, OfTextsWithoutANumberAreZero) {
  EXPECT_EQ(kilobits(""), "     0.000");
  EXPECT_EQ(kilobits("NA"), "     0.000");
  EXPECT_EQ(kilobits("64000 bit/s"), "    64.000");
}

TEST(EthernetRates, OutsideAnIntAreTheNearestThatFits) {
  EXPECT_EQ(kilobits("99999999999999999999"), "2147483.750");
  EXPECT_EQ(kilobits("-99999999999999999999"), "-2147483.750");
}

// The element of the test configuration tree.

TEST_F(EthernetPorts, SpeedIsShownInTheTestConfiguration) {
  setPort(eth0Row, "up", "100");
  EXPECT_EQ(FtmUpdETHER_PORT_SPD(), 0);
  EXPECT_STREQ(GetElementBody(pstTestModeCfgElmt, "TEST_CONFIG/ETHER_PORT/ETHER_PORT_SPD"), "100");
}

TEST_F(EthernetPorts, AnUnknownSpeedLeavesTheTestConfiguration) {
  EXPECT_EQ(FtmUpdETHER_PORT_SPD(), -1);
  EXPECT_STREQ(GetElementBody(pstTestModeCfgElmt, "TEST_CONFIG/ETHER_PORT/ETHER_PORT_SPD"), "UNKNOWN");
}

TEST_F(EthernetPorts, AMissingElementIsAnError) {
  pstTestModeCfgElmt = create_sub_xml_element("top", 1, 0, nullptr, nullptr, nullptr);
  EXPECT_EQ(FtmUpdETHER_PORT_SPD(), -1);
  EXPECT_TRUE(journal("request").empty());
}

// Placeholders.

TEST_F(EthernetPorts, PortSpeedSettingAcceptsThreeSpeedsAndChangesNothing) {
  for (int speed = 0; speed <= 255; ++speed) {
    const bool isKnown = speed == 0 || speed == 10 || speed == 100;
    EXPECT_EQ(FtmActionETHER_PORT_SPD(static_cast<unsigned char>(speed)), isKnown ? 0 : -1) << speed;
  }
  EXPECT_TRUE(journal().empty());
}

TEST_F(EthernetPorts, PlaceholdersHaveFixedResults) {
  for (const unsigned char port : {static_cast<unsigned char>(0), static_cast<unsigned char>(255)}) {
    EXPECT_STREQ(XML_FTM_PortActive(port), "NO");
    EXPECT_EQ(eswitch_PortActive(port), 0);
    EXPECT_EQ(eswitch_SpeedGet(port), 0);
    EXPECT_EQ(eswitch_SpeedSet(port, 100), 0);
  }
  EXPECT_EQ(XML_FTM_PsdMode(), nullptr);
  EXPECT_EQ(FtmUpdPSD_SETTING(), -1);
  EXPECT_EQ(FtmActionPsdModeAuto(), -1);
  EXPECT_EQ(FtmActionPsdModeOn(), -1);
  EXPECT_EQ(FtmActionPsdModeOff(), -1);
  EXPECT_TRUE(journal().empty());
}

} // namespace
