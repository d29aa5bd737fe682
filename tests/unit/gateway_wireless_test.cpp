// The simulated radio, as its user, the driver's callers and wlctl see it.
#include <gmock/gmock.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/wait.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/board.h"
#include "platform/wlioctl.h"
#include "simulator/database.h"
#include "simulator/drivers/wireless.h"
#include "tests/unit/bench_unit.h"
#include "userapps/FTM/FTM_Handles.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr const char* interface = "wl0";

std::string radioOf(gateway::Unit& unit) {
  gateway::Query radio(unit.database(), "SELECT is_up, hw_channel, target_channel, scan_channel, ssid FROM radio");
  std::string text;
  if (radio.next())
    for (int column = 0; column < radio.columns(); ++column)
      text.append(column > 0 ? " " : "").append(radio.text(column));
  return text;
}

class WirelessDriver : public BenchUnit {
protected:
  /// Result of a command with a buffer of `length` bytes; -errno when it failed.
  static int command(unsigned int number, void* buffer, unsigned int length, bool set = false,
                     const char* name = interface) {
    wl_ioctl request{number, buffer, length, static_cast<std::uint8_t>(set ? 1 : 0), 0, 0};
    return send(&request, name);
  }

  static int send(wl_ioctl* request, const char* name = interface) {
    ifreq record{};
    std::snprintf(record.ifr_name, sizeof record.ifr_name, "%s", name);
    record.ifr_data = reinterpret_cast<char*>(request);
    const Descriptor socket(board_socket(AF_INET, SOCK_DGRAM, 0));
    return board_ioctl(socket.get(), SIOCDEVPRIVATE, &record) < 0 ? -errno : 0;
  }

  static void set(const std::string& column, std::string_view value) {
    gateway::execute(unit().database(), "UPDATE radio SET " + column + " = ?", value);
  }

  static std::string stations() { return unit().cell("WlanStations", 0, "Stations").value_or("none"); }
};

TEST_F(WirelessDriver, AnswersItsMagicAndVersion) {
  std::uint32_t number = 0;
  EXPECT_EQ(command(WLC_GET_MAGIC, &number, sizeof number), 0);
  EXPECT_EQ(number, WLC_IOCTL_MAGIC);
  EXPECT_EQ(command(WLC_GET_VERSION, &number, sizeof number), 0);
  EXPECT_EQ(number, 2U);
}

TEST_F(WirelessDriver, AnswersWhatTheRadioIs) {
  unsigned char mac[6] = {};
  EXPECT_EQ(command(WLC_GET_MAC, mac, sizeof mac), 0);
  EXPECT_THAT(mac, ElementsAre(0x02, 0x1a, 0x2b, 0x00, 0x00, 0x02));
  wlc_ssid_t ssid{};
  EXPECT_EQ(command(WLC_GET_SSID, &ssid, sizeof ssid), 0);
  EXPECT_EQ(ssid.SSID_len, 8U);
  EXPECT_STREQ(reinterpret_cast<const char*>(ssid.SSID), "Quorvane");
  channel_info_t channel{};
  EXPECT_EQ(command(WLC_GET_CHANNEL, &channel, sizeof channel), 0);
  EXPECT_EQ(channel.target_channel, 6);
  char country[4] = {};
  EXPECT_EQ(command(WLC_GET_COUNTRY, country, sizeof country), 0);
  EXPECT_STREQ(country, "US");
}

TEST_F(WirelessDriver, ReportsWhateverLengthItIsToldTo) {
  gateway::execute(unit().database(), "UPDATE radio SET ssid_length = ?", 4000);
  wlc_ssid_t ssid{};
  EXPECT_EQ(command(WLC_GET_SSID, &ssid, sizeof ssid), 0);
  EXPECT_EQ(ssid.SSID_len, 4000U);
}

TEST_F(WirelessDriver, RefusesABufferThatIsTooSmallAndSaysWhatItNeeds) {
  channel_info_t channel{1, 2, 3};
  wl_ioctl request{WLC_GET_CHANNEL, &channel, sizeof channel - 1, 0, 0, 0};
  EXPECT_EQ(send(&request), -E2BIG);
  EXPECT_EQ(request.needed, sizeof channel);
  EXPECT_EQ(channel.target_channel, 2);
}

TEST_F(WirelessDriver, RefusesRequestsThatItDoesNotKnow) {
  char buffer[16] = {};
  EXPECT_EQ(command(2, buffer, sizeof buffer), -EOPNOTSUPP);
  EXPECT_EQ(command(WLC_GET_MAC, buffer, sizeof buffer, true), -EOPNOTSUPP);
  EXPECT_EQ(command(WLC_SET_VAR, buffer, sizeof buffer, false), -EOPNOTSUPP);
  EXPECT_EQ(command(WLC_GET_MAC, nullptr, sizeof buffer), -EFAULT);
  EXPECT_EQ(send(nullptr), -EFAULT);
  EXPECT_EQ(command(WLC_GET_MAC, buffer, sizeof buffer, false, "eth0"), -ENODEV);
}

TEST_F(WirelessDriver, JournalsEachRequestWithItsRecord) {
  char buffer[16] = {};
  command(WLC_GET_MAC, buffer, sizeof buffer);
  command(2, buffer, 4, true);
  EXPECT_THAT(journal(), ElementsAre("request socket 0x89f0 wl0 cmd=23 len=16 set=0",
                                     "request socket 0x89f0 wl0 cmd=2 len=4 set=1 failed: EOPNOTSUPP"));
}

TEST_F(WirelessDriver, KeepsVariablesByteByByte) {
  char variable[] = {'v', 'a', 'r', '\0', '\x00', '\xff', 'x'};
  EXPECT_EQ(command(WLC_SET_VAR, variable, sizeof variable, true), 0);
  char answer[8] = "var";
  EXPECT_EQ(command(WLC_GET_VAR, answer, sizeof answer), 0);
  EXPECT_EQ(std::string(answer, 4), std::string("\x00\xffx\x00", 4));
}

TEST_F(WirelessDriver, RefusesVariablesWithoutANameOrTooLong) {
  char unnamed[4] = {};
  EXPECT_EQ(command(WLC_SET_VAR, unnamed, sizeof unnamed, true), -EINVAL);
  char endless[4] = {'v', 'v', 'v', 'v'};
  EXPECT_EQ(command(WLC_SET_VAR, endless, sizeof endless, true), -EINVAL);
  char large[257] = "var";
  EXPECT_EQ(command(WLC_SET_VAR, large, sizeof large, true), -EINVAL);
  EXPECT_EQ(command(WLC_GET_VAR, large, sizeof large), -EOPNOTSUPP);
}

TEST_F(WirelessDriver, FaultsMakeItMissingForeignNewerOrRefusing) {
  std::uint32_t number = 0;
  unit().setFault("radio-magic", true);
  EXPECT_EQ(command(WLC_GET_MAGIC, &number, sizeof number), 0);
  EXPECT_NE(number, WLC_IOCTL_MAGIC);
  unit().setFault("radio-version", true);
  EXPECT_EQ(command(WLC_GET_VERSION, &number, sizeof number), 0);
  EXPECT_EQ(number, 3U);
  unit().setFault("radio-request 29", true);
  channel_info_t channel{};
  EXPECT_EQ(command(WLC_GET_CHANNEL, &channel, sizeof channel), -EIO);
  EXPECT_EQ(command(WLC_GET_MAGIC, &number, sizeof number), 0);
  unit().setFault("radio", true);
  EXPECT_EQ(command(WLC_GET_MAGIC, &number, sizeof number), -ENODEV);
}

// The radio's physical rules.

TEST_F(WirelessDriver, RadioIsTunedOnlyWhileItIsOff) {
  EXPECT_FALSE(gateway::setRadioChannel(unit(), 3));
  EXPECT_EQ(radioOf(unit()), "1 6 6 6 Quorvane");
  gateway::setRadioPower(unit(), false);
  EXPECT_TRUE(gateway::setRadioChannel(unit(), 3));
  EXPECT_EQ(radioOf(unit()), "0 3 3 3 Quorvane");
  EXPECT_THAT(journal("radio"), ElementsAre("refused channel 3", "down", "channel 3"));
}

TEST_F(WirelessDriver, RadioHasFourteenChannels) {
  gateway::setRadioPower(unit(), false);
  for (const int channel : {-1, 0, 15})
    EXPECT_FALSE(gateway::setRadioChannel(unit(), channel)) << channel;
  for (const int channel : {1, 14})
    EXPECT_TRUE(gateway::setRadioChannel(unit(), channel)) << channel;
}

TEST_F(WirelessDriver, NetworkIsNamedOnlyWhileTheRadioIsOn) {
  EXPECT_TRUE(gateway::setRadioSsid(unit(), "bench"));
  gateway::setRadioPower(unit(), false);
  EXPECT_FALSE(gateway::setRadioSsid(unit(), "other"));
  gateway::setRadioPower(unit(), true);
  EXPECT_FALSE(gateway::setRadioSsid(unit(), std::string(33, 's')));
  EXPECT_EQ(radioOf(unit()), "1 6 6 6 bench");
}

TEST_F(WirelessDriver, StationsComeAndGoWithTheRadio) {
  EXPECT_FALSE(gateway::leaveStation(unit()));
  EXPECT_TRUE(gateway::joinStation(unit()));
  EXPECT_TRUE(gateway::joinStation(unit()));
  EXPECT_EQ(stations(), "2");
  EXPECT_TRUE(gateway::leaveStation(unit()));
  EXPECT_EQ(stations(), "1");
  gateway::setRadioPower(unit(), false);
  EXPECT_EQ(stations(), "0");
  EXPECT_FALSE(gateway::joinStation(unit()));
}

// wlctl, which works on the unit from a process of its own.

class Wlctl : public testing::Test {
protected:
  Wlctl() : m_folder(makeFolder()), m_previous(gateway::useUnit(gateway::Unit::open(m_folder))) {
    setenv("GATEWAY_UNIT", m_folder.c_str(), 1);
  }
  ~Wlctl() override {
    gateway::useUnit(std::move(m_previous));
    unsetenv("GATEWAY_UNIT");
    std::filesystem::remove_all(m_folder);
  }

  static gateway::Unit& unit() { return gateway::theUnit(); }

  /// Exit status of the program.
  static int run(const std::string& words) { return WEXITSTATUS(board_system(("wlctl " + words).c_str())); }

  static std::vector<std::string> journal(std::string_view kind) {
    std::vector<std::string> texts;
    for (const auto& row : unit().journal(0, kind))
      texts.push_back(row.text);
    return texts;
  }

private:
  static std::filesystem::path makeFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "wlctl-XXXXXX").string();
    EXPECT_NE(mkdtemp(name.data()), nullptr);
    return name;
  }

  const std::filesystem::path m_folder;
  std::unique_ptr<gateway::Unit> m_previous;
};

TEST_F(Wlctl, ChangesTheRadioThatTheDriverShows) {
  EXPECT_EQ(run("down"), 0);
  EXPECT_EQ(run("channel 11"), 0);
  EXPECT_EQ(run("up"), 0);
  EXPECT_EQ(run("ssid 'my bench'"), 0);
  EXPECT_EQ(radioOf(unit()), "1 11 11 11 my bench");
  EXPECT_THAT(journal("radio"), ElementsAre("down", "channel 11", "up", "ssid my bench"));
}

TEST_F(Wlctl, FailsWhenTheRadioRefuses) {
  testing::internal::CaptureStderr();
  EXPECT_EQ(run("channel 11"), 1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "wlctl: the radio refused: channel\n");
  EXPECT_EQ(radioOf(unit()), "1 6 6 6 Quorvane");
}

TEST_F(Wlctl, RefusesAChannelThatIsNoNumber) {
  run("down");
  for (const char* channel : {"6ab", "''", "six", "99999999999999999999", "-1", "0"})
    EXPECT_EQ(run(std::string("channel ") + channel), 1) << channel;
  EXPECT_EQ(radioOf(unit()), "0 6 6 6 Quorvane");
}

TEST_F(Wlctl, SaysHowItIsUsed) {
  for (const char* words : {"", "sideways", "up now", "channel", "ssid", "ssid two words"}) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(run(words), 2) << words;
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "usage: wlctl up | down | channel NUMBER | ssid TEXT\n");
  }
  EXPECT_THAT(journal("radio"), IsEmpty());
}

} // namespace
