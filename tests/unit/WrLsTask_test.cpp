// The wireless test: the hand-over to the task, the commands that it runs, and the read-back.
#include <gmock/gmock.h>
#include <linux/sockios.h>
#include <pthread.h>
#include <sys/wait.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "simulator/clock.h"
#include "simulator/database.h"
#include "tests/unit/bench_unit.h"
#include "tests/unit/store_calls.h"
#include "tests/unit/virtual_files.h"
#include "userapps/FTM/FTM_Apis.h"
#include "userapps/FTM/FTM_App.h"
#include "userapps/FTM/FTM_Handles.h"
#include "userapps/FTM/FTM_Tags.h"
#include "userapps/FTM/WrLsTask.h"

namespace {

std::function<void()> whileCommandStarts; // what else happens when the task starts a command
std::function<void()> whileRadioIsAsked;  // and at each request to the radio
std::deque<int> failedWaits;              // errors of the next waits for a command
int waits;

} // namespace

extern "C" {

pid_t __real_board_spawn(const char* path, char* const argv[], char* const envp[]);
pid_t __real_board_waitpid(pid_t pid, int* status, int options);

int __real_board_ioctl(int descriptor, unsigned long request, void* argument);

int __wrap_board_ioctl(int descriptor, unsigned long request, void* argument) {
  if (request == SIOCDEVPRIVATE && whileRadioIsAsked)
    whileRadioIsAsked();
  return __real_board_ioctl(descriptor, request, argument);
}

pid_t __wrap_board_spawn(const char* path, char* const argv[], char* const envp[]) {
  if (whileCommandStarts)
    whileCommandStarts();
  return __real_board_spawn(path, argv, envp);
}

pid_t __wrap_board_waitpid(pid_t pid, int* status, int options) {
  ++waits;
  if (failedWaits.empty())
    return __real_board_waitpid(pid, status, options);
  errno = failedWaits.front();
  failedWaits.pop_front();
  return -1;
}
}

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* missingMessage = "wl driver adapter not found\n";
constexpr const char* missingLog = "warning w1 driver adapter not found\n";

void forgetRequest() {
  iFtmWrLsCmd = eWRLS_IDLE;
  stWlFtm = {};
  stWlInfo = {};
  unFtmState.usWd = 0;
  FTM_ClrErrorTFTP();
}

// A unit in a folder of its own, which the commands that the task runs work on too.
class WirelessTest : public testing::Test {
protected:
  WirelessTest() : m_folder(makeFolder()), m_previous(gateway::useUnit(gateway::Unit::open(m_folder))) {
    setenv("GATEWAY_UNIT", m_folder.c_str(), 1);
    gateway::clock::useManual();
    forgetRequest();
    storeCalls.clear();
    set("ssid", "workbench");
    gateway::execute(unit().database(), "UPDATE radio SET hw_channel = 6, target_channel = 6, scan_channel = 6");
  }
  ~WirelessTest() override {
    whileCommandStarts = nullptr;
    whileRadioIsAsked = nullptr;
    failedWaits.clear();
    destroy_xml_object(std::exchange(pstTestModeCfgElmt, nullptr));
    gateway::clock::useReal();
    gateway::useUnit(std::move(m_previous));
    unsetenv("GATEWAY_UNIT");
    std::filesystem::remove_all(m_folder);
  }

  static gateway::Unit& unit() { return gateway::theUnit(); }

  static std::vector<std::string> journal(std::string_view kind) {
    std::vector<std::string> texts;
    for (const auto& row : unit().journal(0, kind))
      texts.push_back(row.text);
    return texts;
  }

  static void set(const std::string& column, std::string_view value) {
    gateway::execute(unit().database(), "UPDATE radio SET " + column + " = ?", value);
  }

  static std::string radioState() {
    gateway::Query radio(unit().database(), "SELECT is_up, target_channel, ssid FROM radio");
    EXPECT_TRUE(radio.next());
    return std::string(radio.text(0)) + " " + std::string(radio.text(1)) + " " + std::string(radio.text(2));
  }

  static int parse(const std::string& children) {
    std::string document = "<BCOM_WIRELESS>" + children + "</BCOM_WIRELESS>";
    const XmlTree tree(create_xml_object(document.data()));
    return FTM_ParseTagBCOM_WIRELESS(GetElement(tree.get(), "BCOM_WIRELESS"));
  }

  // One round of the task, with what it prints.
  static std::string round() {
    testing::internal::CaptureStdout();
    WrLsTaskRound();
    return testing::internal::GetCapturedStdout();
  }

  static std::string shown(const std::string& element) {
    const char* text = GetElementBody(pstTestModeCfgElmt, ("TEST_CONFIG/BCOM_WIRELESS/" + element).c_str());
    return text != nullptr ? text : "no such element";
  }

private:
  static std::filesystem::path makeFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "wireless-XXXXXX").string();
    EXPECT_NE(mkdtemp(name.data()), nullptr);
    return name;
  }

  const std::filesystem::path m_folder;
  std::unique_ptr<gateway::Unit> m_previous;
};

using WirelessTestDeathTest = WirelessTest;

// Parsing.

TEST_F(WirelessTest, AnEmptyElementSetsTheTestBitAndLeavesTheRequest) {
  iFtmWrLsCmd = eWRLS_SET_SSID;
  std::strcpy(stWlFtm.cSSIDinFtm, "waiting");
  EXPECT_EQ(parse(""), 0);
  EXPECT_EQ(unFtmState.usWd, wirelessTestMask);
  EXPECT_EQ(iFtmWrLsCmd, eWRLS_SET_SSID);
  EXPECT_STREQ(stWlFtm.cSSIDinFtm, "waiting");
}

TEST_F(WirelessTest, AnElementThatLostItsChildrenLeavesTheRequest) {
  std::string document = "<BCOM_WIRELESS><SSID>bench</SSID></BCOM_WIRELESS>";
  const XmlTree tree(create_xml_object(document.data()));
  ST_XML_ELEMENT* element = GetElement(tree.get(), "BCOM_WIRELESS");
  RemoveElements(element, "SSID");
  iFtmWrLsCmd = eWRLS_SET_SSID;
  EXPECT_EQ(FTM_ParseTagBCOM_WIRELESS(element), 0);
  EXPECT_EQ(iFtmWrLsCmd, eWRLS_SET_SSID);
}

TEST_F(WirelessTest, TheTestBitLeavesTheOthers) {
  unFtmState.usWd = ledTestMask;
  parse("<SSID>a</SSID>");
  EXPECT_EQ(unFtmState.usWd, ledTestMask | wirelessTestMask);
}

TEST_F(WirelessTest, ChannelsOneToElevenAreAccepted) {
  for (const char* channel : {"1", "6", "11"}) {
    EXPECT_EQ(parse(std::string("<CHANNEL> ") + channel + " </CHANNEL>"), 0) << channel;
    EXPECT_EQ(iFtmWrLsCmd, eWRLS_SET_CHNL) << channel;
    EXPECT_STREQ(stWlFtm.cChannelFtm, channel);
  }
}

TEST_F(WirelessTest, OtherChannelsAreRefusedAndNothingIsHandedOver) {
  for (const char* channel : {"0", "12", "-1", "six", "4294967297", "99999999999999999999"}) {
    parse("<SSID>earlier</SSID>");
    FTM_ClrErrorTFTP();
    EXPECT_EQ(parse(std::string("<SSID>new</SSID><CHANNEL>") + channel + "</CHANNEL>"), -1) << channel;
    EXPECT_EQ(recordedMessage(), szTstUnsp) << channel;
    EXPECT_EQ(iFtmWrLsCmd, eWRLS_IDLE) << channel;
    EXPECT_STREQ(stWlFtm.cSSIDinFtm, "") << channel;
    EXPECT_STREQ(stWlFtm.cChannelFtm, "") << channel;
    EXPECT_EQ(unFtmState.usWd, wirelessTestMask) << channel;
  }
}

TEST_F(WirelessTest, AChannelFollowedByLettersIsAcceptedAndCopiedAsWritten) {
  EXPECT_EQ(parse("<CHANNEL>6ab</CHANNEL>"), 0);
  EXPECT_STREQ(stWlFtm.cChannelFtm, "6ab");
}

TEST_F(WirelessTest, AChannelTextLongerThanItsFieldIsCut) {
  EXPECT_EQ(parse("<CHANNEL>6abcdefghijklmnop</CHANNEL>"), 0);
  EXPECT_STREQ(stWlFtm.cChannelFtm, "6ab");
  EXPECT_EQ(parse("<CHANNEL>00011</CHANNEL>"), 0);
  EXPECT_STREQ(stWlFtm.cChannelFtm, "000");
}

TEST_F(WirelessTest, AnSsidOf31CharactersIsAcceptedAndOneOf32Refused) {
  const std::string longest(31, 's');
  EXPECT_EQ(parse("<SSID>" + longest + "</SSID>"), 0);
  EXPECT_EQ(stWlFtm.cSSIDinFtm, longest);
  EXPECT_EQ(iFtmWrLsCmd, eWRLS_SET_SSID);
  EXPECT_EQ(parse("<SSID>" + longest + "s</SSID>"), -1);
  EXPECT_EQ(recordedMessage(), szTstUnsp);
  EXPECT_EQ(iFtmWrLsCmd, eWRLS_IDLE);
  EXPECT_STREQ(stWlFtm.cSSIDinFtm, "");
}

TEST_F(WirelessTest, BothSettingsMakeOneRequest) {
  EXPECT_EQ(parse("<SSID>bench</SSID><CHANNEL>3</CHANNEL>"), 0);
  EXPECT_EQ(iFtmWrLsCmd, 3);
}

TEST_F(WirelessTest, OtherChildrenAndThoseWithoutATextAreIgnored) {
  EXPECT_EQ(parse("<MAC_ADDR>x</MAC_ADDR><DOMAIN>y</DOMAIN><CHANNEL></CHANNEL><SSID/><ssid>z</ssid>"), 0);
  EXPECT_EQ(iFtmWrLsCmd, eWRLS_IDLE);
  EXPECT_STREQ(stWlFtm.cSSIDinFtm, "");
  EXPECT_EQ(recordedMessage(), "");
}

TEST_F(WirelessTest, ASecondRequestReplacesTheFirst) {
  parse("<SSID>first</SSID><CHANNEL>3</CHANNEL>");
  parse("<SSID>second</SSID>");
  EXPECT_EQ(iFtmWrLsCmd, eWRLS_SET_SSID);
  round();
  EXPECT_THAT(journal("command"), ElementsAre("wlctl down", "wlctl channel 6", "wlctl up", "wlctl ssid second"));
}

// The task.

TEST_F(WirelessTest, ARoundWithoutARequestOnlySleepsForTwoSeconds) {
  const std::int64_t start = gateway::clock::nowMs();
  EXPECT_EQ(round(), "");
  EXPECT_EQ(gateway::clock::nowMs() - start, 2000);
  EXPECT_EQ(iOnceWrLs, 1);
  EXPECT_THAT(journal(""), IsEmpty());
}

TEST_F(WirelessTest, BothSettingsAreAppliedWithoutAskingTheRadioForThem) {
  parse("<SSID>bench</SSID><CHANNEL>3</CHANNEL>");
  const std::int64_t start = gateway::clock::nowMs();
  EXPECT_EQ(round(), "stWlFtm.cSSIDinFtm =bench\nstWlFtm.cChannelFtm =3\n");
  EXPECT_EQ(gateway::clock::nowMs() - start, 2000);
  EXPECT_THAT(journal("command"), ElementsAre("wlctl down", "wlctl channel 3", "wlctl up", "wlctl ssid bench"));
  EXPECT_THAT(journal("request"),
              ElementsAre(HasSubstr("cmd=0"), HasSubstr("cmd=1"))); // finding the interface, nothing else
  EXPECT_EQ(radioState(), "1 3 bench");
  EXPECT_EQ(iFtmWrLsCmd, eWRLS_IDLE);
}

TEST_F(WirelessTest, TheChannelAloneRepeatsTheRadiosSsid) {
  parse("<CHANNEL>11</CHANNEL>");
  EXPECT_THAT(round(), HasSubstr("stWlFtm.cSSIDinFtm =workbench\nstWlFtm.cChannelFtm =11\n"));
  EXPECT_THAT(journal("command"), ElementsAre("wlctl down", "wlctl channel 11", "wlctl up", "wlctl ssid workbench"));
  EXPECT_EQ(radioState(), "1 11 workbench");
}

TEST_F(WirelessTest, TheSsidAloneRepeatsTheRadiosChannel) {
  gateway::execute(unit().database(), "UPDATE radio SET hw_channel = 1, target_channel = 9, scan_channel = 2");
  parse("<SSID>bench</SSID>");
  EXPECT_THAT(round(), HasSubstr("stWlFtm.cSSIDinFtm =bench\nstWlFtm.cChannelFtm =9\n"));
  EXPECT_THAT(journal("command"), ElementsAre("wlctl down", "wlctl channel 9", "wlctl up", "wlctl ssid bench"));
  EXPECT_EQ(radioState(), "1 9 bench");
}

TEST_F(WirelessTest, ARequestIsAppliedOnce) {
  parse("<SSID>bench</SSID><CHANNEL>3</CHANNEL>");
  round();
  EXPECT_EQ(round(), "");
  EXPECT_EQ(journal("command").size(), 4U);
}

TEST_F(WirelessTest, AnUnknownCommandIsTakenAndDoesNothing) {
  iFtmWrLsCmd = eWRLS_SET_WEP_KEYS;
  EXPECT_EQ(round(), "stWlFtm.cSSIDinFtm =\nstWlFtm.cChannelFtm =\n");
  EXPECT_EQ(iFtmWrLsCmd, eWRLS_IDLE);
  EXPECT_THAT(journal("command"), IsEmpty());
  EXPECT_THAT(journal("request"), IsEmpty());
}

TEST_F(WirelessTest, AMissingRadioIsReportedAndNothingIsRun) {
  unit().setFault("radio", true);
  parse("<SSID>bench</SSID><CHANNEL>3</CHANNEL>");
  testing::internal::CaptureStderr();
  round();
  EXPECT_EQ(testing::internal::GetCapturedStderr(), missingMessage);
  EXPECT_THAT(journal("log"), ElementsAre(missingLog));
  EXPECT_THAT(journal("command"), IsEmpty());
  EXPECT_EQ(recordedMessage(), "");
}

TEST_F(WirelessTest, AnOldRadioRunsNothing) {
  unit().setFault("radio-version", true);
  parse("<CHANNEL>3</CHANNEL>");
  round();
  EXPECT_THAT(journal("command"), IsEmpty());
}

TEST_F(WirelessTest, ARadioThatRefusesItsReadingsIsSetUpWithWhatItLastReported) {
  ASSERT_EQ(FtmUpdateWireless(), 0);
  for (const char* fault : {"radio-request 23", "radio-request 25", "radio-request 29"})
    unit().setFault(fault, true);
  parse("<CHANNEL>4</CHANNEL>");
  round();
  EXPECT_THAT(journal("command"), ElementsAre("wlctl down", "wlctl channel 4", "wlctl up", "wlctl ssid workbench"));
}

TEST_F(WirelessTest, AnUnreadableAdapterTableSkipsTheSetupSilently) {
  unit().setFault("table WlanConfig", true);
  parse("<SSID>bench</SSID><CHANNEL>3</CHANNEL>");
  testing::internal::CaptureStderr();
  round();
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(recordedMessage(), "");
  EXPECT_THAT(journal("command"), IsEmpty());
  EXPECT_THAT(journal("log"), IsEmpty());
}

TEST_F(WirelessTest, TheSetupRunsWhateverTheAdapterTableHolds) {
  for (const char* enabled : {"0", "", "off"}) {
    unit().setCell("WlanConfig", 0, "Enabled", enabled);
    parse("<SSID>bench</SSID><CHANNEL>3</CHANNEL>");
    round();
  }
  unit().clearTable("WlanConfig");
  parse("<SSID>bench</SSID><CHANNEL>3</CHANNEL>");
  round();
  EXPECT_EQ(journal("command").size(), 16U);
}

TEST_F(WirelessTest, TheStoreKeepsItsAdapterTable) {
  unit().setCell("WlanConfig", 0, "Enabled", "0");
  parse("<SSID>bench</SSID><CHANNEL>3</CHANNEL>");
  round();
  EXPECT_EQ(unit().cell("WlanConfig", 0, "Enabled"), "0");
}

TEST_F(WirelessTest, FailingCommandsAreNotNoticed) {
  unit().setFault("spawn", true);
  parse("<SSID>bench</SSID><CHANNEL>3</CHANNEL>");
  round();
  EXPECT_EQ(journal("command").size(), 4U);
  EXPECT_EQ(recordedMessage(), "");
  EXPECT_EQ(iFtmWrLsCmd, eWRLS_IDLE);
}

TEST_F(WirelessTest, ReadingsLongerThanTheirFieldsAreCut) {
  set("ssid", "0123456789abcdefghijklmnopqrstuv");
  parse("<CHANNEL>3</CHANNEL>");
  round();
  EXPECT_STREQ(stWlFtm.cSSIDinFtm, "0123456789abcdefghijklmnopqrstu");
  gateway::execute(unit().database(), "UPDATE radio SET target_channel = -123456");
  parse("<SSID>bench</SSID>");
  round();
  EXPECT_STREQ(stWlFtm.cChannelFtm, "-12");
}

TEST_F(WirelessTestDeathTest, WithoutASessionTheTaskEndsTheProcessWithACriticalLogLineAndTheMutexHeld) {
  parse("<SSID>bench</SSID>");
  unit().setFault("session", true);
  const auto end = [] {
    std::atexit([] {
      std::fputs(journal("log").back().c_str(), stderr);
      std::fputs(pthread_mutex_trylock(&stWrLsFtm_Mutex) == EBUSY ? "held" : "free", stderr);
    });
    WrLsTaskRound();
  };
  EXPECT_EXIT(end(), testing::ExitedWithCode(255), "^crit FATAL: failed to start session\nheld$");
}

TEST_F(WirelessTest, ARequestIsAppliedInASessionOfItsOwn) {
  parse("<SSID>bench</SSID>");
  EXPECT_THAT(storeCalls, IsEmpty());
  round();
  EXPECT_THAT(storeCalls, ElementsAre("session 0", "end"));
}

TEST_F(WirelessTest, WithoutARequestNoSessionIsNeeded) {
  unit().setFault("session", true);
  EXPECT_EQ(round(), "");
}

TEST_F(WirelessTest, TheMutexIsHeldWhileTheCommandsRun) {
  parse("<SSID>bench</SSID><CHANNEL>3</CHANNEL>");
  std::vector<int> locks;
  whileCommandStarts = [&] { locks.push_back(pthread_mutex_trylock(&stWrLsFtm_Mutex)); };
  round();
  EXPECT_THAT(locks, ElementsAre(EBUSY, EBUSY, EBUSY, EBUSY));
  EXPECT_EQ(pthread_mutex_trylock(&stWrLsFtm_Mutex), 0);
  pthread_mutex_unlock(&stWrLsFtm_Mutex);
}

TEST_F(WirelessTest, ARequestParsedWhileTheCommandsRunWaitsForThemAndComesNext) {
  parse("<SSID>first</SSID><CHANNEL>3</CHANNEL>");
  std::thread station;
  whileCommandStarts = [&] {
    if (!station.joinable())
      station = std::thread([] { parse("<SSID>second</SSID><CHANNEL>4</CHANNEL>"); });
  };
  round();
  station.join();
  whileCommandStarts = nullptr;
  EXPECT_EQ(radioState(), "1 3 first");
  round();
  EXPECT_EQ(radioState(), "1 4 second");
}

TEST_F(WirelessTest, TheRadioCanBeReadBackWhileTheCommandsRun) {
  parse("<SSID>bench</SSID><CHANNEL>3</CHANNEL>");
  whileCommandStarts = [] { EXPECT_EQ(FtmUpdateWireless(), 0); };
  round();
  EXPECT_EQ(shown("SSID"), "workbench");
}

// Read-back.

TEST_F(WirelessTest, TheRadioIsShownInTheTestConfiguration) {
  set("mac", "02:1a:2b:0c:0d:ff");
  set("country", "US");
  gateway::execute(unit().database(), "UPDATE radio SET hw_channel = 1, target_channel = 6, scan_channel = 11");
  EXPECT_EQ(FtmUpdateWireless(), 0);
  EXPECT_EQ(shown("SSID"), "workbench");
  EXPECT_EQ(shown("CHANNEL"), "6");
  EXPECT_EQ(shown("DOMAIN"), "US");
  EXPECT_EQ(shown("MAC_ADDR"), "02:1a:2b:0c:0d:ff");
}

TEST_F(WirelessTest, WhatTheTestConfigurationLacksIsNotShown) {
  RemoveElements(GetElement(GetElement(TestModeCfgTree(), "TEST_CONFIG"), "BCOM_WIRELESS"), "SSID");
  EXPECT_EQ(FtmUpdateWireless(), 0);
  EXPECT_EQ(shown("SSID"), "no such element");
  EXPECT_EQ(shown("CHANNEL"), "6");
}

TEST_F(WirelessTest, WhatWasAppliedIsReadBack) {
  parse("<SSID>bench</SSID><CHANNEL>3</CHANNEL>");
  round();
  EXPECT_EQ(FtmUpdateWireless(), 0);
  EXPECT_EQ(shown("SSID"), "bench");
  EXPECT_EQ(shown("CHANNEL"), "3");
}

TEST_F(WirelessTest, ARadioThatCannotBeReadShowsWhatItLastReported) {
  EXPECT_EQ(FtmUpdateWireless(), 0);
  set("ssid", "later");
  unit().setFault("radio", true);
  EXPECT_EQ(FtmUpdateWireless(), 0);
  EXPECT_EQ(shown("SSID"), "workbench");
  unit().setFault("radio", false);
  unit().setFault("radio-request 29", true);
  EXPECT_EQ(FtmUpdateWireless(), 0);
  EXPECT_EQ(shown("SSID"), "later");
  EXPECT_EQ(shown("CHANNEL"), "6");
}

TEST_F(WirelessTest, WhatAnotherThreadReadMeanwhileIsKeptWhereAReadingFails) {
  struct Case {
    const char* fault;
    std::vector<std::string> texts; ///< MAC address, SSID, channel and country
  };
  const Case cases[] = {
      {"radio", {"meanwhile", "meanwhile", "11", "JP"}},
      {"radio-request 23", {"meanwhile", "meanwhile", "11", "JP"}},
      {"radio-request 25", {"02:1a:2b:0c:0d:ff", "meanwhile", "11", "JP"}},
      {"radio-request 29", {"02:1a:2b:0c:0d:ff", "workbench", "11", "JP"}},
      {"radio-request 83", {"02:1a:2b:0c:0d:ff", "workbench", "6", "JP"}},
  };
  set("mac", "02:1a:2b:0c:0d:ff");
  set("country", "US");
  whileRadioIsAsked = [] {
    const MutexLock lock(stWlInfo_Mutex);
    stWlInfo = {"meanwhile", {9, "meanwhile"}, {0, 11, 0}, "JP"};
  };
  for (const Case& refresh : cases) {
    stWlInfo = {};
    unit().setFault(refresh.fault, true);
    EXPECT_EQ(FtmUpdateWireless(), 0);
    unit().setFault(refresh.fault, false);
    EXPECT_EQ((std::vector{shown("MAC_ADDR"), shown("SSID"), shown("CHANNEL"), shown("DOMAIN")}), refresh.texts)
        << refresh.fault;
    EXPECT_STREQ(stWlInfo.cDomain, "JP") << refresh.fault;
  }
  EXPECT_EQ(FtmUpdateWireless(), 0);
  EXPECT_EQ(shown("DOMAIN"), "US");
  EXPECT_STREQ(stWlInfo.cDomain, "US");
}

TEST_F(WirelessTest, TheRadioIsShownFromASessionOfItsOwn) {
  EXPECT_EQ(FtmUpdateWireless(), 0);
  EXPECT_THAT(storeCalls, ElementsAre("session 0", "end"));
}

TEST_F(WirelessTest, ARadioNeverReadShowsEmptyTexts) {
  unit().setFault("radio", true);
  EXPECT_EQ(FtmUpdateWireless(), 0);
  EXPECT_EQ(shown("SSID"), "");
  EXPECT_EQ(shown("CHANNEL"), "0");
}

TEST_F(WirelessTest, WithoutASessionTheReadBackFailsAndTheTextsStay) {
  unit().setFault("session", true);
  testing::internal::CaptureStderr();
  EXPECT_EQ(FtmUpdateWireless(), -1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "error: failed to start session\n");
  EXPECT_EQ(recordedMessage(), szCrtXmlFail);
  EXPECT_EQ(GetElementBody(TestModeCfgTree(), "TEST_CONFIG/BCOM_WIRELESS/SSID"), std::string("NA"));
}

// Running commands.

TEST_F(WirelessTest, NoCommandGivesOne) {
  EXPECT_EQ(bcmSystemEx(nullptr), 1);
  EXPECT_THAT(journal("command"), IsEmpty());
}

TEST_F(WirelessTest, ACommandsRawWaitStatusIsReturned) {
  EXPECT_EQ(bcmSystemEx("exit 3"), 3 << 8);
  EXPECT_EQ(bcmSystemEx("true"), 0);
  const int killed = bcmSystemEx("kill -9 $$");
  EXPECT_TRUE(WIFSIGNALED(killed));
  EXPECT_EQ(WTERMSIG(killed), SIGKILL);
  EXPECT_THAT(journal("command"), ElementsAre("exit 3", "true", "kill -9 $$"));
}

TEST_F(WirelessTest, CommandsRunInTheShellWithTheEnvironmentOfTheService) {
  setenv("WIRELESS_TEST", "5", 1);
  EXPECT_EQ(bcmSystemEx("exit \"$WIRELESS_TEST\""), 5 << 8);
  unsetenv("WIRELESS_TEST");
}

TEST_F(WirelessTest, AnInterruptedWaitForACommandIsRepeated) {
  failedWaits = {EINTR, EINTR};
  waits = 0;
  EXPECT_EQ(bcmSystemEx("exit 4"), 4 << 8);
  EXPECT_EQ(waits, 3);
}

TEST_F(WirelessTest, AnotherFailureOfTheWaitGivesMinusOne) {
  failedWaits = {EINTR, ECHILD};
  waits = 0;
  EXPECT_EQ(bcmSystemEx("exit 4"), -1);
  EXPECT_EQ(waits, 2);
}

TEST_F(WirelessTest, ACommandThatCannotBeStartedGivesMinusOne) {
  unit().setFault("spawn", true);
  waits = 0;
  EXPECT_EQ(bcmSystemEx("true"), -1);
  EXPECT_EQ(waits, 0);
}

} // namespace
