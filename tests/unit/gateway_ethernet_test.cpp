// The simulated switch and network devices, as their user, the driver's callers and the store's readers see them.
#include <gmock/gmock.h>
#include <linux/sockios.h>
#include <net/if.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/bcmnet.h"
#include "platform/board.h"
#include "platform/cfg_api.h"
#include "simulator/database.h"
#include "simulator/drivers/ethernet.h"
#include "simulator/drivers/line.h"
#include "simulator/drivers/wireless.h"
#include "tests/unit/bench_unit.h"
#include "userapps/FTM/FTM_Handles.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr int ports = 5;

class Switch : public BenchUnit {
protected:
  /// Result of a request for an interface, -errno when it failed; the answer goes to `value`.
  int request(unsigned long number, const char* name) {
    ifreq record{};
    std::snprintf(record.ifr_name, sizeof record.ifr_name, "%s", name);
    record.ifr_data = reinterpret_cast<char*>(&value);
    const Descriptor socket(board_socket(AF_INET, SOCK_DGRAM, 0));
    return board_ioctl(socket.get(), number, &record) < 0 ? -errno : 0;
  }

  static int flags(const char* name) {
    ifreq record{};
    std::snprintf(record.ifr_name, sizeof record.ifr_name, "%s", name);
    const Descriptor socket(board_socket(AF_INET, SOCK_DGRAM, 0));
    return board_ioctl(socket.get(), SIOCGIFFLAGS, &record) < 0 ? -errno : record.ifr_flags;
  }

  static std::string cell(const char* table, int row, const char* column) {
    return unit().cell(table, row, column).value_or("none");
  }

  /// Link, speed, duplex and counts of a port, as a session of the store reads them.
  static std::string port(int number) {
    const StoreSession session(CFG_ROLE_MODEM, nullptr);
    const TableSnapshot table(session.get(), "SwitchStat");
    std::string text;
    for (int column = 0; column < 5; ++column)
      text += std::string(column > 0 ? " " : "") + table.cell(number - 1, column);
    return text;
  }

  static std::map<std::string, long> counts(const char* table, int row) {
    const StoreSession session(CFG_ROLE_MODEM, nullptr);
    const TableSnapshot snapshot(session.get(), table);
    std::map<std::string, long> numbers;
    const auto columns = unit().columns(table);
    for (std::size_t column = 0; column < columns.size(); ++column)
      numbers[columns[column]] = std::atol(snapshot.cell(row, static_cast<int>(column)));
    return numbers;
  }

  static void wait(std::int64_t ms) { board_usleep(static_cast<useconds_t>(ms * 1000)); }

  int value = -1;
};

// Links.

TEST_F(Switch, HasFivePortsAndTheLastOneIsTheWayToTheUnit) {
  for (int number = 1; number <= ports; ++number)
    EXPECT_NE(cell("SwitchStat", number - 1, "Link"), "none");
  EXPECT_EQ(cell("SwitchStat", ports, "Link"), "none");
  EXPECT_EQ(port(5).substr(0, 7), "up 1000");
}

TEST_F(Switch, UnpluggedPortLosesItsLinkItsSpeedAndItsCounts) {
  gateway::setPortLink(unit(), 1, false);
  EXPECT_EQ(port(1), "down 0 half 0 0");
}

TEST_F(Switch, PluggedPortStartsItsCountsAtZero) {
  gateway::setPortLink(unit(), 1, false);
  gateway::setPortLink(unit(), 1, true);
  EXPECT_EQ(port(1), "up 100 full 0 0");
}

TEST_F(Switch, OtherPortsAreNotTouched) {
  const std::string before = port(5);
  gateway::setPortLink(unit(), 1, false);
  gateway::setPortLink(unit(), 2, true);
  EXPECT_EQ(port(5), before);
  EXPECT_EQ(port(3), "down 0 half 0 0");
}

TEST_F(Switch, PortTakesItsSpeedWithItsLink) {
  gateway::setPortSpeed(unit(), 2, 10);
  EXPECT_EQ(port(2), "down 0 half 0 0");
  gateway::setPortLink(unit(), 2, true);
  EXPECT_EQ(port(2), "up 10 full 0 0");
  gateway::setPortSpeed(unit(), 2, 1000);
  EXPECT_EQ(port(2), "up 1000 full 0 0");
}

TEST_F(Switch, RefusesPortsAndSpeedsThatItDoesNotHave) {
  for (const int number : {0, 6, -1}) {
    EXPECT_THROW(gateway::setPortLink(unit(), number, true), std::runtime_error);
    EXPECT_THROW(gateway::setPortSpeed(unit(), number, 100), std::runtime_error);
  }
  EXPECT_THROW(gateway::setPortSpeed(unit(), 1, 25), std::runtime_error);
  EXPECT_THAT(journal(), IsEmpty());
}

TEST_F(Switch, WhatItsUserDoesIsJournalled) {
  gateway::setPortLink(unit(), 2, true);
  gateway::setPortSpeed(unit(), 2, 10);
  gateway::setPortLink(unit(), 2, false);
  gateway::setTraffic(unit(), true);
  gateway::setTraffic(unit(), false);
  EXPECT_THAT(journal(), ElementsAre("switch port 2 up", "switch port 2 speed 10", "switch port 2 down",
                                     "switch traffic on", "switch traffic off"));
}

// The driver.

TEST_F(Switch, DriverAnswersFromTheSamePort) {
  EXPECT_EQ(request(SIOCGLINKSTATE, "eth1"), 0);
  EXPECT_EQ(value, 1);
  EXPECT_EQ(request(SIOCCURRENTSPEED, "eth1"), 0);
  EXPECT_EQ(value, 100'000'000);
  EXPECT_EQ(flags("eth1"), IFF_UP | IFF_BROADCAST | IFF_MULTICAST | IFF_RUNNING);
  gateway::setPortLink(unit(), 1, false);
  EXPECT_EQ(request(SIOCGLINKSTATE, "eth1"), 0);
  EXPECT_EQ(value, 0);
  EXPECT_EQ(request(SIOCCURRENTSPEED, "eth1"), 0);
  EXPECT_EQ(value, 0);
  EXPECT_EQ(flags("eth1"), IFF_UP | IFF_BROADCAST | IFF_MULTICAST);
}

TEST_F(Switch, DriverKnowsNoOtherInterface) {
  EXPECT_EQ(request(SIOCGLINKSTATE, "eth9"), -ENODEV);
  EXPECT_EQ(request(SIOCCURRENTSPEED, ""), -ENODEV);
  EXPECT_EQ(flags("wl0"), -ENODEV);
  EXPECT_THAT(journal(),
              ElementsAre("request socket 0x89f1 eth9 -1 failed: ENODEV", "request socket 0x8a01  -1 failed: ENODEV",
                          "request socket 0x8913 wl0 flags=0x0000 failed: ENODEV"));
}

TEST_F(Switch, DriverRefusesARecordWithoutData) {
  const Descriptor socket(board_socket(AF_INET, SOCK_DGRAM, 0));
  EXPECT_EQ(board_ioctl(socket.get(), SIOCGLINKSTATE, nullptr), -1);
  EXPECT_EQ(errno, EFAULT);
  ifreq record{};
  std::strcpy(record.ifr_name, "eth0");
  EXPECT_EQ(board_ioctl(socket.get(), SIOCGLINKSTATE, &record), -1);
  EXPECT_EQ(errno, EFAULT);
  EXPECT_THAT(journal(),
              ElementsAre("request socket 0x89f1 failed: EFAULT", "request socket 0x89f1 eth0 failed: EFAULT"));
}

TEST_F(Switch, DriverReadsANameWithoutATerminatorNoFurtherThanItsField) {
  const Descriptor socket(board_socket(AF_INET, SOCK_DGRAM, 0));
  ifreq record{};
  std::memset(&record, 'n', sizeof record);
  record.ifr_data = nullptr;
  EXPECT_EQ(board_ioctl(socket.get(), SIOCGLINKSTATE, &record), -1);
  EXPECT_THAT(journal(), ElementsAre("request socket 0x89f1 nnnnnnnnnnnnnnnn failed: ENODEV"));
}

// Traffic.

TEST_F(Switch, CountsStandStillWithoutTraffic) {
  const std::string before = port(1);
  wait(60'000);
  EXPECT_EQ(port(1), before);
}

TEST_F(Switch, CountsMoveWithTheClockWhileTrafficRuns) {
  gateway::setPortLink(unit(), 2, true);
  gateway::setTraffic(unit(), true);
  wait(1000);
  EXPECT_EQ(port(2), "up 100 full 200 200");
  wait(5);
  EXPECT_EQ(port(2), "up 100 full 200 200");
  wait(5);
  EXPECT_EQ(port(2), "up 100 full 202 202");
}

TEST_F(Switch, CountsStopWhereTheTrafficStopped) {
  gateway::setPortLink(unit(), 2, true);
  gateway::setTraffic(unit(), true);
  wait(1000);
  gateway::setTraffic(unit(), false);
  wait(1000);
  EXPECT_EQ(port(2), "up 100 full 200 200");
  gateway::setTraffic(unit(), true);
  wait(10);
  EXPECT_EQ(port(2), "up 100 full 202 202");
}

TEST_F(Switch, NothingPassesOverALinkThatIsDown) {
  gateway::setTraffic(unit(), true);
  wait(1000);
  EXPECT_EQ(port(3), "down 0 half 0 0");
}

TEST_F(Switch, CountsReturnToZeroWhenTheLinkDropsAndMoveOnFromThere) {
  gateway::setPortLink(unit(), 2, true);
  gateway::setTraffic(unit(), true);
  wait(1000);
  gateway::setPortLink(unit(), 2, false);
  wait(1000);
  EXPECT_EQ(port(2), "down 0 half 0 0");
  gateway::setPortLink(unit(), 2, true);
  wait(100);
  EXPECT_EQ(port(2), "up 100 full 20 20");
}

TEST_F(Switch, DevicesCountWhatPassesTheirPortAndKeepItWhenItsLinkDrops) {
  const auto before = counts("NetDev", 1);
  gateway::setTraffic(unit(), true);
  wait(1000);
  const auto after = counts("NetDev", 1);
  EXPECT_EQ(after.at("RxPackets") - before.at("RxPackets"), 200);
  EXPECT_EQ(after.at("TxPackets") - before.at("TxPackets"), 200);
  EXPECT_EQ(after.at("RxBytes") - before.at("RxBytes"), 200 * 512);
  EXPECT_EQ(after.at("TxBytes") - before.at("TxBytes"), 200 * 512);
  EXPECT_EQ(after.at("RxDrop"), before.at("RxDrop"));
  gateway::setPortLink(unit(), 1, false);
  wait(1000);
  EXPECT_EQ(counts("NetDev", 1), after);
}

TEST_F(Switch, RadioCountsOnlyWithAStation) {
  gateway::setTraffic(unit(), true);
  const auto before = counts("NetDev", 2);
  wait(1000);
  EXPECT_EQ(counts("NetDev", 2), before);
  ASSERT_TRUE(gateway::joinStation(unit()));
  wait(1000);
  EXPECT_EQ(counts("NetDev", 2).at("RxPackets") - before.at("RxPackets"), 200);
  gateway::setRadioPower(unit(), false);
  wait(1000);
  EXPECT_EQ(counts("NetDev", 2).at("RxPackets") - before.at("RxPackets"), 200);
}

TEST_F(Switch, CellsPassOnlyOverALineThatIsUp) {
  gateway::setLineState(unit().database(), gateway::LineState::down);
  gateway::setTraffic(unit(), true);
  const auto before = counts("BcmAtm", 0);
  const auto device = counts("NetDev", 3);
  wait(1000);
  EXPECT_EQ(counts("BcmAtm", 0), before);
  EXPECT_EQ(counts("NetDev", 3), device);
  gateway::setLineState(unit().database(), gateway::LineState::up);
  wait(1000);
  EXPECT_EQ(counts("BcmAtm", 0).at("InCells") - before.at("InCells"), 2200);
  EXPECT_EQ(counts("BcmAtm", 0).at("OutCells") - before.at("OutCells"), 2200);
  EXPECT_EQ(counts("NetDev", 3).at("RxPackets") - device.at("RxPackets"), 200);
}

TEST_F(Switch, KernelsDeviceTableMovesToo) {
  gateway::execute(unit().database(), "UPDATE \"NetDev\" SET \"RxPackets\" = '0' WHERE \"Interface\" = 'eth1'");
  gateway::setTraffic(unit(), true);
  wait(1000);
  std::FILE* stream = board_fopen("/proc/net/dev", "r");
  ASSERT_NE(stream, nullptr);
  std::string text;
  char line[256];
  while (std::fgets(line, sizeof line, stream) != nullptr)
    if (std::strstr(line, "eth1:") != nullptr)
      text = line;
  std::fclose(stream);
  EXPECT_THAT(text, testing::HasSubstr("     200    0    3 "));
}

TEST_F(Switch, AClockThatStartsAnewMovesNothingBackwards) {
  gateway::setPortLink(unit(), 2, true);
  gateway::setTraffic(unit(), true);
  gateway::execute(unit().database(), "UPDATE traffic SET moved_until_ms = ?", 1'000'000);
  EXPECT_EQ(port(2), "up 100 full 0 0");
  wait(100);
  EXPECT_EQ(port(2), "up 100 full 20 20");
}

} // namespace
