// The radio through the wireless driver's requests.
#include <gmock/gmock.h>
#include <net/if.h>

#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/database.h"
#include "tests/unit/bench_unit.h"
#include "userapps/FTM/FTM_Handles.h"
#include "userapps/FTM/WrLsIoctl.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* missingMessage = "wl driver adapter not found\n";
constexpr const char* missingLog = "warning w1 driver adapter not found\n";

class Radio : public BenchUnit {
protected:
  Radio() {
    unit().clearTable("ProductInterfaces");
    addInterface(0, "Omnilane", "eth1");
    addInterface(1, "Wireless", "wl0");
    set("mac", "02:1a:2b:0c:0d:ff");
    set("ssid", "workbench");
    set("country", "US");
    gateway::execute(unit().database(), "UPDATE radio SET hw_channel = 1, target_channel = 6, scan_channel = 11");
  }

  static void addInterface(int row, std::string_view nickname, std::string_view name) {
    unit().setCell("ProductInterfaces", row, "NickName", nickname);
    unit().setCell("ProductInterfaces", row, "Interface", name);
  }

  static void set(const std::string& column, std::string_view value) {
    gateway::execute(unit().database(), "UPDATE radio SET " + column + " = ?", value);
  }

  static void setSsidLength(std::int64_t length) {
    gateway::execute(unit().database(), "UPDATE radio SET ssid_length = ?", length);
  }

  static std::string ssidText(std::string_view bytes, std::uint32_t length) {
    wlc_ssid_t ssid{};
    ssid.SSID_len = length;
    bytes.copy(reinterpret_cast<char*>(ssid.SSID), sizeof ssid.SSID);
    char text[radioSsidTextSize];
    WL_SsidText(ssid, text);
    return text;
  }

  std::string found() {
    ifreq interface {};
    std::memset(interface.ifr_name, '#', sizeof interface.ifr_name);
    wl_find(m_session.get(), &interface);
    return {interface.ifr_name, strnlen(interface.ifr_name, sizeof interface.ifr_name)};
  }

  // The wireless interface; what finding it did is no longer in the journal that recent() shows.
  ifreq* radio() {
    wl_find(m_session.get(), &m_interface);
    m_seen = lastId();
    return &m_interface;
  }

  std::vector<std::string> recent(std::string_view kind) const {
    std::vector<std::string> texts;
    for (const auto& row : unit().journal(m_seen, kind))
      texts.push_back(row.text);
    return texts;
  }

  static std::int64_t lastId() {
    const auto rows = unit().journal();
    return rows.empty() ? 0 : rows.back().id;
  }

  const StoreSession m_session{CFG_ROLE_MODEM, nullptr};
  ifreq m_interface{};
  std::int64_t m_seen = 0;
};

// Finding the interface.

TEST_F(Radio, IsFoundByItsNickname) {
  EXPECT_EQ(found(), "wl0");
}

TEST_F(Radio, IsTheFirstInterfaceOfItsNickname) {
  addInterface(2, "Wireless", "wl1");
  EXPECT_EQ(found(), "wl0");
}

TEST_F(Radio, IsFoundInTheFirstRow) {
  addInterface(0, "Wireless", "wl0");
  addInterface(1, "Omnilane", "eth1");
  EXPECT_EQ(found(), "wl0");
}

TEST_F(Radio, IsNotFoundWithoutANicknameOrAName) {
  addInterface(1, "wireless", "wl0");
  EXPECT_EQ(found(), "");
  addInterface(1, "Wireless", "");
  EXPECT_EQ(found(), "");
  unit().clearTable("ProductInterfaces");
  EXPECT_EQ(found(), "");
}

TEST_F(Radio, IsSilentlyNotFoundWhenTheInterfacesCannotBeRead) {
  unit().setFault("table ProductInterfaces", true);
  testing::internal::CaptureStderr();
  EXPECT_EQ(found(), "");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_THAT(journal(), IsEmpty());
}

TEST_F(Radio, IsAskedForItsMagicAndThenItsVersion) {
  found();
  EXPECT_THAT(journal("request"),
              ElementsAre("socket 0x89f0 wl0 cmd=0 len=4 set=0", "socket 0x89f0 wl0 cmd=1 len=4 set=0"));
}

TEST_F(Radio, OfAnotherMagicIsNotFoundAndNotLogged) {
  unit().setFault("radio-magic", true);
  EXPECT_EQ(found(), "");
  EXPECT_EQ(journal("request").size(), 1U);
  EXPECT_THAT(journal("log"), IsEmpty());
}

TEST_F(Radio, ThatDoesNotAnswerTheMagicProbeIsNotFoundAndNotLogged) {
  unit().setFault("radio", true);
  EXPECT_EQ(found(), "");
  EXPECT_THAT(journal("log"), IsEmpty());
  unit().setFault("radio", false);
  unit().setFault("radio-request 0", true);
  EXPECT_EQ(found(), "");
  EXPECT_THAT(journal("log"), IsEmpty());
}

TEST_F(Radio, OfANewerInterfaceVersionIsNotFoundAndBothTextsSaySo) {
  unit().setFault("radio-version", true);
  testing::internal::CaptureStderr();
  EXPECT_EQ(found(), "");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Version mismatch, please upgrade\n");
  EXPECT_THAT(journal("log"), ElementsAre("notice Version mimatch, please upgrade\n"));
}

TEST_F(Radio, ThatRefusesItsVersionIsNotFoundAndLogged) {
  unit().setFault("radio-request 1", true);
  EXPECT_EQ(found(), "");
  EXPECT_THAT(journal("log"), ElementsAre("err wl0:ioctl call failed,cmd=1 errno = 5, buf=\n"));
}

TEST_F(Radio, NameIsCutToTheRequestsField) {
  addInterface(1, "Wireless", "a-wireless-interface-with-a-long-name");
  EXPECT_EQ(found(), "");
  EXPECT_THAT(journal("request"), ElementsAre(HasSubstr("socket 0x89f0 a-wireless-inte cmd=0")));
}

// Reading the radio.

TEST_F(Radio, ReportsEverythingInOrder) {
  ST_WL_INFO info{};
  testing::internal::CaptureStdout();
  EXPECT_EQ(WL_Info(&info, m_session.get()), 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "pWlInfo->stSSID.SSID = workbench\n");
  EXPECT_STREQ(info.cMacAddr, "02:1a:2b:0c:0d:ff");
  EXPECT_EQ(info.stSSID.SSID_len, 9U);
  EXPECT_EQ(std::memcmp(info.stSSID.SSID, "workbench\0", 10), 0);
  EXPECT_EQ(info.stChnlInf.hw_channel, 1);
  EXPECT_EQ(info.stChnlInf.target_channel, 6);
  EXPECT_EQ(info.stChnlInf.scan_channel, 11);
  EXPECT_STREQ(info.cDomain, "US");
  EXPECT_THAT(journal("request"),
              ElementsAre("socket 0x89f0 wl0 cmd=0 len=4 set=0", "socket 0x89f0 wl0 cmd=1 len=4 set=0",
                          "socket 0x89f0 wl0 cmd=23 len=6 set=0", "socket 0x89f0 wl0 cmd=25 len=36 set=0",
                          "socket 0x89f0 wl0 cmd=29 len=12 set=0", "socket 0x89f0 wl0 cmd=83 len=4 set=0"));
}

struct Refusal {
  int command;
  const char* printed;
};

class RadioRefusals : public Radio, public testing::WithParamInterface<Refusal> {};

TEST_P(RadioRefusals, StopTheReadingAndKeepWhatWasThere) {
  const auto& [command, printed] = GetParam();
  unit().setFault("radio-request " + std::to_string(command), true);
  ST_WL_INFO info{};
  std::strcpy(info.cMacAddr, "old mac");
  std::strcpy(reinterpret_cast<char*>(info.stSSID.SSID), "old ssid");
  info.stChnlInf.target_channel = 99;
  std::strcpy(info.cDomain, "old");
  testing::internal::CaptureStdout();
  EXPECT_EQ(WL_Info(&info, m_session.get()), -1);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), printed);
  EXPECT_THAT(journal("request").back(), HasSubstr(" cmd=" + std::to_string(command) + " "));
  EXPECT_EQ(std::string(info.cMacAddr) == "old mac", command <= 23);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(info.stSSID.SSID)) == "old ssid", command <= 25);
  EXPECT_EQ(info.stChnlInf.target_channel == 99, command <= 29);
  EXPECT_STREQ(info.cDomain, "old");
}

INSTANTIATE_TEST_SUITE_P(All, RadioRefusals,
                         testing::Values(Refusal{23, ""}, Refusal{25, "wl_get Fail stSSID!\n"},
                                         Refusal{29, "pWlInfo->stSSID.SSID = workbench\nwl_get Fail stChnlInf!\n"},
                                         Refusal{83, "pWlInfo->stSSID.SSID = workbench\nwl_get Fail cDomain!\n"}),
                         [](const auto& row) { return "Command" + std::to_string(row.param.command); });

TEST_F(Radio, ThatIsMissingIsReportedOnTheConsoleAndInTheLog) {
  unit().setFault("radio", true);
  ST_WL_INFO info{};
  testing::internal::CaptureStderr();
  EXPECT_EQ(WL_Info(&info, m_session.get()), -1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), missingMessage);
  EXPECT_THAT(journal("log"), ElementsAre(missingLog));
}

TEST_F(Radio, CountryWithoutATerminatorEndsAfterFourBytes) {
  set("country", "ABCDEFGH");
  ST_WL_INFO info{};
  std::memset(info.cDomain, '#', sizeof info.cDomain);
  EXPECT_EQ(WL_Info(&info, m_session.get()), 0);
  EXPECT_STREQ(info.cDomain, "ABCD");
}

TEST_F(Radio, SsidLongerThanItsFieldIsCut) {
  set("ssid", "0123456789abcdefghijklmnopqrstuv");
  for (const std::int64_t length : {33LL, 4096LL, 4294967295LL}) {
    setSsidLength(length);
    char ssid[radioSsidTextSize];
    EXPECT_EQ(WLinfoSSID(m_session.get(), ssid), 0);
    EXPECT_STREQ(ssid, "0123456789abcdefghijklmnopqrstuv");
  }
}

TEST(RadioSsid, IsATextOfItsLengthUpToTheFirstNul) {
  const auto text = [](std::string_view bytes, std::uint32_t length) {
    wlc_ssid_t ssid{};
    ssid.SSID_len = length;
    bytes.copy(reinterpret_cast<char*>(ssid.SSID), sizeof ssid.SSID);
    char result[radioSsidTextSize];
    std::memset(result, '#', sizeof result);
    WL_SsidText(ssid, result);
    return std::string(result);
  };
  EXPECT_EQ(text("workbench", 9), "workbench");
  EXPECT_EQ(text("workbench", 4), "work");
  EXPECT_EQ(text("workbench", 0), "");
  EXPECT_EQ(text("workbench", 20), "workbench");
  EXPECT_EQ(text(std::string(32, 'x'), 32), std::string(32, 'x'));
  EXPECT_EQ(text(std::string(32, 'x'), 0xFFFFFFFF), std::string(32, 'x'));
}

TEST_F(Radio, MacAddressAloneIsRead) {
  char mac[radioMacTextSize] = "old";
  EXPECT_EQ(WLinfo(m_session.get(), mac), 0);
  EXPECT_STREQ(mac, "02:1a:2b:0c:0d:ff");
  unit().setFault("radio-request 23", true);
  char unread[radioMacTextSize] = "old";
  EXPECT_EQ(WLinfo(m_session.get(), unread), -1);
  EXPECT_STREQ(unread, "old");
}

TEST_F(Radio, MacAddressAloneOfAMissingRadioIsNone) {
  unit().setFault("radio", true);
  char mac[radioMacTextSize] = "old";
  testing::internal::CaptureStderr();
  EXPECT_EQ(WLinfo(m_session.get(), mac), -1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), missingMessage);
  EXPECT_THAT(journal("log"), ElementsAre(missingLog));
  EXPECT_STREQ(mac, "old");
}

TEST_F(Radio, SsidAloneIsPrintedTwice) {
  char ssid[radioSsidTextSize] = "old";
  testing::internal::CaptureStdout();
  EXPECT_EQ(WLinfoSSID(m_session.get(), ssid), 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "stArg.SSID = workbench\ncSSID = workbench\n");
  EXPECT_STREQ(ssid, "workbench");
}

TEST_F(Radio, SsidAloneSaysWhatFailed) {
  char ssid[radioSsidTextSize] = "old";
  unit().setFault("radio-request 25", true);
  testing::internal::CaptureStdout();
  EXPECT_EQ(WLinfoSSID(m_session.get(), ssid), -1);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "wl_get Fail !\n");
  unit().setFault("radio", true);
  testing::internal::CaptureStdout();
  EXPECT_EQ(WLinfoSSID(m_session.get(), ssid), -1);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "wl_find Fail !\n");
  EXPECT_STREQ(ssid, "old");
}

// Single requests.

TEST_F(Radio, RequestsSayWhetherTheySet) {
  ifreq* wl = radio();
  char variable[] = "txpower\0";
  wl_set(wl, WLC_SET_VAR, variable, sizeof variable);
  wl_get(wl, WLC_GET_VAR, variable, sizeof variable);
  EXPECT_THAT(recent("request"),
              ElementsAre("socket 0x89f0 wl0 cmd=263 len=9 set=1", "socket 0x89f0 wl0 cmd=262 len=9 set=0"));
}

TEST_F(Radio, FailedRequestsAreLoggedWithTheirBuffer) {
  ifreq* wl = radio();
  char name[] = "no such variable";
  EXPECT_LT(wl_get(wl, WLC_GET_VAR, name, sizeof name), 0);
  EXPECT_THAT(recent("log"), ElementsAre("err wl0:ioctl call failed,cmd=262 errno = 95, buf=no such variable\n"));
}

TEST_F(Radio, AFailedRequestsBufferIsReadNoFurtherThanItGoes) {
  ifreq* wl = radio();
  const std::vector<char> unterminated(6, 'x');
  EXPECT_LT(wlan_ioctl(wl, 9999, const_cast<char*>(unterminated.data()), 6, false, true), 0);
  EXPECT_LT(wlan_ioctl(wl, 9999, nullptr, 6, false, true), 0);
  EXPECT_LT(wlan_ioctl(wl, 9999, const_cast<char*>(unterminated.data()), -1, false, true), 0);
  EXPECT_THAT(recent("log"), ElementsAre(HasSubstr("buf=xxxxxx\n"), HasSubstr("buf=\n"), HasSubstr("buf=\n")));
}

TEST_F(Radio, RequestsAreNotLoggedForTheMagicOrWhenNotAskedTo) {
  ifreq* wl = radio();
  unit().setFault("radio", true);
  char buffer[4] = {};
  EXPECT_LT(wlan_ioctl(wl, WLC_GET_MAGIC, buffer, sizeof buffer, false, true), 0);
  EXPECT_LT(wlan_ioctl(wl, WLC_GET_VERSION, buffer, sizeof buffer, false, false), 0);
  EXPECT_THAT(recent("log"), IsEmpty());
}

TEST_F(Radio, RequestsWithoutASocketAreLogged) {
  ifreq* wl = radio();
  unit().setFault("socket", true);
  char buffer[4] = {};
  EXPECT_EQ(wl_get(wl, WLC_GET_MAGIC, buffer, sizeof buffer), -1);
  EXPECT_THAT(recent("log"), ElementsAre("err wlan:can't open socket, errno=24\n"));
  EXPECT_THAT(recent("request"), IsEmpty());
}

// Named variables.

TEST_F(Radio, VariablesAreReadBackAsTheyWereSet) {
  ifreq* wl = radio();
  const int value = 0x12345678;
  EXPECT_EQ(wl_set_val(wl, "txpower", &value, sizeof value), 0);
  int answer = 0;
  EXPECT_EQ(wl_get_val(wl, "txpower", &answer, sizeof answer), 0);
  EXPECT_EQ(answer, value);
  EXPECT_EQ(wl_set_str(wl, "name", "bench", 6), 0);
  char text[6] = "";
  EXPECT_EQ(wl_get_val(wl, "name", text, sizeof text), 0);
  EXPECT_STREQ(text, "bench");
  EXPECT_THAT(recent("request"),
              ElementsAre("socket 0x89f0 wl0 cmd=263 len=12 set=1", "socket 0x89f0 wl0 cmd=262 len=256 set=0",
                          "socket 0x89f0 wl0 cmd=263 len=11 set=1", "socket 0x89f0 wl0 cmd=262 len=256 set=0"));
}

TEST_F(Radio, VariablesTakeExactlyTheirBuffer) {
  ifreq* wl = radio();
  const std::string bytes(512, 'v');
  EXPECT_EQ(wl_set_val(wl, "var", bytes.data(), 252), 0);
  EXPECT_EQ(wl_set_val(wl, "var", bytes.data(), 253), -1);
  EXPECT_EQ(wl_set_str(wl, "var", bytes.data(), 124), 0);
  EXPECT_EQ(wl_set_str(wl, "var", bytes.data(), 125), -1);
  EXPECT_EQ(wl_set_val(wl, std::string(255, 'n').c_str(), nullptr, 0), 0);
  EXPECT_EQ(wl_set_val(wl, std::string(256, 'n').c_str(), nullptr, 0), -1);
  EXPECT_EQ(wl_set_str(wl, std::string(127, 'n').c_str(), nullptr, 0), 0);
  EXPECT_EQ(wl_set_str(wl, std::string(128, 'n').c_str(), nullptr, 0), -1);
  EXPECT_EQ(recent("request").size(), 4U);
}

TEST_F(Radio, VariablesReadTakeExactlyTheirBuffer) {
  ifreq* wl = radio();
  const std::string longest(255, 'n');
  wl_set_val(wl, longest.c_str(), nullptr, 0);
  wl_set_val(wl, "var", "value", 5);
  char value[512] = {};
  EXPECT_EQ(wl_get_val(wl, longest.c_str(), value, 0), 0);
  EXPECT_EQ(wl_get_val(wl, std::string(256, 'n').c_str(), value, 0), -1);
  EXPECT_EQ(wl_get_val(wl, "var", value, 256), 0);
  EXPECT_STREQ(value, "value");
  EXPECT_EQ(wl_get_val(wl, "var", value, 257), -1);
  EXPECT_EQ(recent("request").size(), 4U);
}

TEST_F(Radio, VariablesOfNegativeLengthAreRefused) {
  ifreq* wl = radio();
  char value[8] = {};
  EXPECT_EQ(wl_set_val(wl, "var", value, -1), -1);
  EXPECT_EQ(wl_set_str(wl, "var", value, -1), -1);
  EXPECT_EQ(wl_get_val(wl, "var", value, -1), -1);
  EXPECT_THAT(recent("request"), IsEmpty());
}

TEST_F(Radio, AVariableThatCannotBeReadLeavesTheValue) {
  ifreq* wl = radio();
  char value[8] = "old";
  EXPECT_LT(wl_get_val(wl, "no such variable", value, sizeof value), 0);
  EXPECT_STREQ(value, "old");
}

} // namespace
