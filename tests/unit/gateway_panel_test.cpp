#include <gmock/gmock.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "simulator/commands.h"
#include "simulator/database.h"
#include "simulator/journal.h"
#include "simulator/panel/action.h"
#include "simulator/panel/address.h"
#include "simulator/panel/calls.h"
#include "simulator/panel/changes.h"
#include "simulator/panel/feed.h"
#include "simulator/panel/journal_page.h"
#include "simulator/panel/json.h"
#include "simulator/panel/life.h"
#include "simulator/panel/line.h"
#include "simulator/panel/origin.h"
#include "simulator/panel/output_tail.h"
#include "simulator/panel/page.h"
#include "simulator/panel/state.h"
#include "simulator/panel/watch.h"
#include "simulator/saved_unit.h"
#include "simulator/service_output.h"
#include "tests/unit/bench_unit.h"
#include "tests/unit/unit_folder.h"

using namespace gateway;
using namespace std::chrono_literals;
using namespace std::string_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

namespace {

constexpr auto patience = 60s;

// State of a unit.

class GatewayPanelState : public BenchUnit {
protected:
  static Json state(bool isSupervised = true) {
    Life life;
    life.follow(unit());
    return stateOf(unit(), life, {.isSupervised = isSupervised, .activeTests = {"LED_TEST"}});
  }

  static std::string phaseAfter(const std::vector<std::string>& kinds) {
    for (const std::string& kind : kinds)
      unit().record(kind, kind == "end" ? "signal 9" : "normal");
    return state()["unit"]["phase"];
  }

  static void act(const std::vector<std::string>& words) { runAction(unit(), words); }
};

using GatewayPanelLife = GatewayPanelState;
using GatewayPanelJournal = BenchUnit;

std::vector<std::int64_t> idsOf(const JournalPage& page) {
  std::vector<std::int64_t> ids;
  for (const JournalRow& row : page.rows)
    ids.push_back(row.id);
  return ids;
}

// What changes.

class GatewayPanelChanges : public UnitFolder {
protected:
  GatewayPanelChanges() : m_unit(Unit::open(folder())) {}

  Unit& unit() { return *m_unit; }
  UnitSource& source() { return m_source; }

  /// Names of events with the sections of changes: "change buttons".
  static std::vector<std::string> namesOf(const std::vector<Changes::Event>& events) {
    std::vector<std::string> names;
    for (const Changes::Event& event : events) {
      std::string name = event.name;
      if (name == "change")
        for (const auto& [key, section] : event.data.items())
          name += " " + key;
      names.push_back(name);
    }
    return names;
  }

private:
  std::unique_ptr<Unit> m_unit;
  UnitSource m_source{folder()};
};

using GatewayPanelWatch = GatewayPanelChanges;
using GatewayPanelOutput = UnitFolder;
using GatewayPanelLine = UnitFolder;
using GatewayPanelAction = UnitFolder;

/// The next event that isn't a sign of life.
std::string nextEvent(Feed& feed) {
  const auto limit = std::chrono::steady_clock::now() + patience;
  while (std::chrono::steady_clock::now() < limit)
    if (const auto event = feed.next(100ms); event && !(*event)->starts_with("event: alive"))
      return **event;
  return "nothing";
}

void append(const std::filesystem::path& file, const std::string& text) {
  std::ofstream(file, std::ios::app) << text;
}

} // namespace

TEST(GatewayPanelJson, MakesEachByteTheCharacterOfItsNumber) {
  EXPECT_EQ(utf8Of("plain\n\0"s), "plain\n\0"s);
  EXPECT_EQ(utf8Of("\x7F\x80\xBF\xC0\xFF"), "\x7F\xC2\x80\xC2\xBF\xC3\x80\xC3\xBF");
  std::string all;
  for (int byte = 0; byte < 256; ++byte)
    all += static_cast<char>(byte);
  EXPECT_EQ(bytesOf(utf8Of(all)), all);
  EXPECT_EQ(Json::parse(Json(utf8Of(all)).dump()), utf8Of(all)); // always fit to be sent
}

TEST(GatewayPanelJson, TakesNoTextThatBytesCannotHold) {
  for (const char* const text :
       {"\xC4\x80", "\xE2\x98\x83", "\xF0\x9F\x98\x80", "\x80", "\xC3", "\xC3(", "\xC0\x80", "\xC1\xBF", "\xFF"})
    EXPECT_EQ(bytesOf(text), std::nullopt) << text;
}

TEST(GatewayPanelAddress, IsAnAddressAndAPort) {
  for (const char* const text : {"127.0.0.1:8069", "0.0.0.0:0", "[::1]:65535", "localhost:80"})
    EXPECT_EQ(parsePanelAddress(text).text(), text);
  for (const char* const text : {"", ":", "8069", "127.0.0.1", "127.0.0.1:", "127.0.0.1:65536", "127.0.0.1:-1",
                                 "127.0.0.1:80x", "::1:80", "[127.0.0.1]:80", "example.com:80", "[::1:80", "1.2.3:80"})
    EXPECT_THROW(parsePanelAddress(text), std::runtime_error) << text;
}

TEST(GatewayPanelAddress, KnowsWhatOnlyThisMachineReaches) {
  for (const char* const address : {"127.0.0.1", "127.9.9.9", "::1", "localhost"})
    EXPECT_TRUE(isLoopback(address)) << address;
  for (const char* const address : {"0.0.0.0", "::", "192.0.2.1", "128.0.0.1", "example.com", ""})
    EXPECT_FALSE(isLoopback(address)) << address;
}

TEST(GatewayPanelOrigin, ServesOnlyNamesThatNobodyElseCanPointHere) {
  struct Case {
    const char* host;
    bool onLoopback;
    bool onAll;
  };
  for (const Case& host : {Case{"127.0.0.1:8069", true, true},
                           {"127.0.0.1", true, true},
                           {"localhost:1", true, true},
                           {"LocalHost", true, true},
                           {"[::1]:8069", true, true},
                           {"192.0.2.1:8069", false, true},
                           {"[2001:db8::1]:8069", false, true},
                           {"attacker.example:8069", false, false},
                           {"127.0.0.1.attacker.example", false, false},
                           {"localhost.attacker.example", false, false},
                           {"[::1", false, false},
                           {"[::1]x", false, false},
                           {"127.0.0.1:80@attacker.example", false, false},
                           {"2130706433", false, false},
                           {"", false, false},
                           {":8069", false, false}}) {
    EXPECT_EQ(isServedHost(host.host, "127.0.0.1"), host.onLoopback) << host.host;
    EXPECT_EQ(isServedHost(host.host, "0.0.0.0"), host.onAll) << host.host;
  }
}

TEST(GatewayPanelOrigin, TakesOnlyItsOwnPageOrNone) {
  const char* const host = "127.0.0.1:8069";
  struct Case {
    const char* origin;
    const char* fetchSite;
    bool isTaken;
  };
  for (const Case& request : {Case{"", "", true},
                              {"http://127.0.0.1:8069", "same-origin", true},
                              {"", "none", true},
                              {"HTTP://127.0.0.1:8069", "", true},
                              {"http://127.0.0.1:8070", "", false},
                              {"https://127.0.0.1:8069", "", false},
                              {"http://localhost:8069", "", false},
                              {"http://attacker.example", "", false},
                              {"null", "", false},
                              {"", "cross-site", false},
                              {"", "same-site", false},
                              {"http://127.0.0.1:8069", "cross-site", false}})
    EXPECT_EQ(isSameOrigin(host, request.origin, request.fetchSite), request.isTaken)
        << request.origin << " " << request.fetchSite;
}

TEST(GatewayPanelPage, HoldsEveryFileByteForByte) {
  const std::filesystem::path folder = PAGE_FOLDER;
  std::size_t files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    std::ifstream stream(entry.path(), std::ios::binary);
    const std::string content((std::istreambuf_iterator<char>(stream)), {});
    const auto held = std::ranges::find(pageFiles(), entry.path().filename().string(), &PageFile::name);
    ASSERT_NE(held, pageFiles().end()) << entry.path();
    EXPECT_TRUE(held->content == content) << entry.path();
    ++files;
  }
  EXPECT_EQ(pageFiles().size(), files);
}

TEST_F(GatewayPanelState, HoldsWhatTheUnitIs) {
  const Json about = state()["unit"];
  EXPECT_EQ(about["model"], "M77-210010-04");
  EXPECT_EQ(about["serial"], "1234");
  EXPECT_EQ(about["mac"], "02:1a:2b:00:00:01");
  EXPECT_EQ(about["image"], "FTM 01.05.06");
  EXPECT_EQ(about["bootMode"], 0xFFFF);
  EXPECT_EQ(about["ftmMode"], 0xFFFF);
  EXPECT_EQ(about["nextBoot"], "normal");
  EXPECT_EQ(about["activeTests"], Json({"LED_TEST"}));
}

TEST_F(GatewayPanelState, HoldsLedsRelaysOutputsAndButtons) {
  execute(unit().database(), "UPDATE gpio SET value = 1 WHERE point IN (22, 60)");
  act({"press", "wps"});
  const Json now = state();
  EXPECT_THAT(now["leds"], SizeIs(16));
  EXPECT_EQ(now["leds"][0], Json({{"number", 1}, {"name", "ePowerGrnLed"}, {"on", true}}));
  EXPECT_EQ(now["relays"][0]["on"], true);
  EXPECT_EQ(now["relays"][1]["on"], false);
  EXPECT_EQ(now["outputs"][0], Json({{"number", 41}, {"name", "eDSLPair"}, {"on", false}}));
  EXPECT_EQ(now["outputs"][1]["number"], 60);
  EXPECT_THAT(now["outputs"], SizeIs(2));
  EXPECT_EQ(now["buttons"], Json::parse(R"([{"name":"reset","pressed":false},{"name":"wps","pressed":true}])"));
  EXPECT_EQ(now["testMode"], false);
}

TEST_F(GatewayPanelState, HoldsLinePortsTrafficAndWire) {
  EXPECT_EQ(state()["line"], Json::parse(R"({"state":"up","speedDown":8128000,"speedUp":896000,"circuit":"0.35"})"));
  act({"line", "down"});
  act({"circuit", "delete", "1.0.35"});
  act({"traffic", "on"});
  act({"port", "1", "down"});
  act({"wire", "delay", "3", "--jitter", "2"});
  const Json now = state();
  EXPECT_EQ(now["line"], Json::parse(R"({"state":"down","speedDown":0,"speedUp":0,"circuit":""})"));
  EXPECT_EQ(now["ports"][0], Json::parse(R"({"number":1,"up":false,"megabits":0,"received":0,"sent":0})"));
  EXPECT_EQ(now["ports"][4]["megabits"], 1000);
  EXPECT_EQ(now["traffic"], true);
  EXPECT_EQ(now["wire"], Json::parse(R"({"loss":0,"duplicate":0,"delay":3,"jitter":2,"seed":1})"));
}

TEST_F(GatewayPanelState, HoldsRadioUsbAndFaults) {
  act({"radio", "ssid", "Line\xFF"});
  act({"station", "join"});
  act({"usb", "plug", "--vendor", "V", "--model", "M"});
  act({"fault", "on", "commit"});
  const Json now = state();
  EXPECT_EQ(now["radio"]["ssid"], "Line\xC3\xBF");
  EXPECT_EQ(now["radio"]["stations"], 1);
  EXPECT_EQ(now["usb"], Json::parse(R"([{"vendor":"V","model":"M","rev":"1.00","type":"Direct-Access"}])"));
  EXPECT_EQ(now["faults"], Json({"commit"}));
}

TEST_F(GatewayPanelState, IsWhatIsLeftWithoutUnit) {
  EXPECT_EQ(stateOfNothing("/units/a"), Json::parse(R"({"unit":{"folder":"/units/a","phase":"off"}})"));
}

TEST_F(GatewayPanelState, ChangesBySections) {
  const Json before = state();
  EXPECT_THAT(changedSections(before, state()), IsEmpty());
  act({"press", "reset"});
  const Json changes = changedSections(before, state());
  EXPECT_THAT(changes, SizeIs(1));
  EXPECT_EQ(changes["buttons"], state()["buttons"]);
  EXPECT_EQ(changedSections(Json::object(), before), before);
}

TEST_F(GatewayPanelLife, FollowsTheServiceThroughItsBoots) {
  EXPECT_EQ(phaseAfter({}), "dark");
  EXPECT_EQ(phaseAfter({"boot", "log"}), "booting");
  EXPECT_EQ(phaseAfter({"ready", "log"}), "up");
  EXPECT_EQ(phaseAfter({"reboot"}), "up"); // until the service has ended
  EXPECT_EQ(phaseAfter({"end"}), "dark");
  EXPECT_EQ(phaseAfter({"boot"}), "booting");
  EXPECT_EQ(state(false)["unit"]["phase"], "off");
  EXPECT_EQ(state()["unit"]["boots"], 2);
  EXPECT_EQ(state()["unit"]["boot"], "normal");
  EXPECT_EQ(state()["unit"]["lastEnd"], "signal 9");
}

TEST_F(GatewayPanelLife, ReadsOnWhereItWas) {
  Life life;
  for (const char* const kind : {"boot", "ready", "boot"}) {
    unit().record(kind, "normal");
    life.follow(unit());
  }
  life.follow(unit());
  EXPECT_EQ(life.boots(), 2);
  EXPECT_EQ(life.stage(), Life::Stage::booting);
}

TEST_F(GatewayPanelJournal, GivesTheLastRowsUnlessItIsToldOtherwise) {
  for (int row = 1; row <= 5; ++row)
    unit().record(row % 2 == 0 ? "even" : "odd", "Row " + std::to_string(row));
  const auto ids = [](const JournalQuestion& question) { return idsOf(journalPage(unit(), question)); };
  EXPECT_THAT(ids({}), ElementsAre(1, 2, 3, 4, 5));
  EXPECT_THAT(ids({.limit = 2}), ElementsAre(4, 5));
  EXPECT_THAT(ids({.before = 4, .limit = 2}), ElementsAre(2, 3));
  EXPECT_THAT(ids({.after = 1, .limit = 2}), ElementsAre(4, 5));
  EXPECT_THAT(ids({.after = 1, .isFromStart = true, .limit = 2}), ElementsAre(2, 3));
  EXPECT_THAT(ids({.before = 5, .after = 2}), ElementsAre(3, 4));
  EXPECT_THAT(ids({.kind = "odd"}), ElementsAre(1, 3, 5));
  EXPECT_THAT(ids({.text = "rOW 3"}), ElementsAre(3));
  EXPECT_THAT(ids({.kind = "odd", .text = "4"}), IsEmpty());
  EXPECT_THAT(ids({.kind = "' OR 1 --"}), IsEmpty());
}

TEST_F(GatewayPanelJournal, SaysWhetherThereIsMore) {
  for (int row = 1; row <= 3; ++row)
    unit().record("a", "");
  EXPECT_TRUE(journalPage(unit(), {.limit = 2}).hasMore);
  EXPECT_FALSE(journalPage(unit(), {.limit = 3}).hasMore);
  EXPECT_TRUE(journalPage(unit(), {.after = 0, .isFromStart = true, .limit = 2}).hasMore);
  EXPECT_FALSE(journalPage(unit(), {.after = 1, .isFromStart = true, .limit = 2}).hasMore);
}

TEST_F(GatewayPanelJournal, GivesBytesAsCharacters) {
  unit().record("a", "nul \0 high \xFF"s);
  EXPECT_EQ(jsonOf(journalPage(unit(), {}).rows)[0]["text"], "nul \0 high \xC3\xBF"s);
}

TEST_F(GatewayPanelChanges, TellsNothingWhileNothingChanges) {
  Changes changes(source());
  changes.next();
  EXPECT_THAT(namesOf(changes.next()), IsEmpty());
}

TEST_F(GatewayPanelChanges, TellsChangedSectionsAndNewRows) {
  Changes changes(source());
  EXPECT_THAT(namesOf(changes.next()), ElementsAre("state"));
  runAction(unit(), {"press", "reset"});
  unit().journalBook().flush();
  const auto events = changes.next();
  EXPECT_THAT(namesOf(events), ElementsAre("change buttons", "journal"));
  EXPECT_EQ(events[1].data.back()["text"], "reset pressed");
  EXPECT_EQ(changes.whole()["buttons"][0]["pressed"], true);
  EXPECT_EQ(changes.whole()["journal"].back()["text"], "reset pressed");
}

TEST_F(GatewayPanelChanges, TellsOfAFloodOfRowsTheNewest) {
  Changes changes(source());
  changes.next();
  unit().record("before", "");
  unit().journalBook().flush();
  changes.next();
  const int rows = 3 * static_cast<int>(Changes::journalRows);
  for (int row = 1; row <= rows; ++row)
    unit().record("a", std::to_string(row));
  unit().journalBook().flush();
  const auto events = changes.next();
  ASSERT_THAT(namesOf(events), ElementsAre("journal"));
  EXPECT_THAT(events[0].data, SizeIs(Changes::journalRows));
  EXPECT_EQ(events[0].data.back()["text"], std::to_string(rows));
  EXPECT_EQ(changes.whole()["journal"], events[0].data);
}

TEST_F(GatewayPanelChanges, TellsWhatTheServicePrints) {
  Changes changes(source());
  changes.next();
  append(folder() / outputFile, "one\ntw");
  EXPECT_THAT(namesOf(changes.next()), ElementsAre("output"));
  append(folder() / outputFile, "o \xFF\n");
  EXPECT_EQ(changes.next().at(0).data, Json({"two \xC3\xBF"}));
  EXPECT_EQ(changes.whole()["output"], Json({"one", "two \xC3\xBF"}));
}

TEST_F(GatewayPanelChanges, OutlivesTheUnitAndFindsAnother) {
  Changes changes(source());
  changes.next();
  Unit::remove(folder());
  EXPECT_THAT(namesOf(changes.next()), ElementsAre("change unit"));
  EXPECT_FALSE(changes.hasUnit());
  EXPECT_EQ(changes.whole()["unit"], stateOfNothing(folder().string())["unit"]);
  EXPECT_THAT(namesOf(changes.next()), IsEmpty());
  const auto another = Unit::open(folder());
  another->setCell("ProductionData", 0, "SerialNum", "another");
  const auto events = changes.next();
  ASSERT_THAT(namesOf(events), ElementsAre("state"));
  EXPECT_EQ(events[0].data["unit"]["serial"], "another");
}

TEST_F(GatewayPanelChanges, FindsAUnitThatHasTakenTheOthersPlace) {
  Changes changes(source());
  changes.next();
  Unit::remove(folder());
  Unit::open(folder())->setCell("ProductionData", 0, "SerialNum", "another");
  const auto events = changes.next();
  ASSERT_THAT(namesOf(events), ElementsAre("state"));
  EXPECT_EQ(events[0].data["unit"]["serial"], "another");
}

TEST_F(GatewayPanelChanges, FindsASavedUnitThatHasBeenLoaded) {
  const std::filesystem::path file = folder() / "saved";
  unit().record("boot", "normal");
  saveUnit(unit(), file);
  for (int row = 0; row < 5; ++row)
    unit().record("boot", "safe boot");
  unit().journalBook().flush();
  Changes changes(source());
  changes.next();
  loadUnit(folder(), file);
  ASSERT_THAT(namesOf(changes.next()), ElementsAre("state"));
  EXPECT_EQ(changes.whole()["unit"]["boots"], 1);
  EXPECT_EQ(changes.whole()["unit"]["boot"], "normal");
  EXPECT_EQ(changes.whole()["journal"].back()["text"], "normal");
  unit().record("end", "reboot");
  unit().journalBook().flush();
  EXPECT_THAT(namesOf(changes.next()), ElementsAre("change unit", "journal"));
}

TEST_F(GatewayPanelChanges, ForgetsWhatAnotherUnitHasPrinted) {
  Changes changes(source());
  append(folder() / outputFile, "old\n");
  changes.next();
  Unit::remove(folder());
  std::filesystem::remove(folder() / outputFile);
  append(folder() / outputFile, "new\n");
  Unit::open(folder());
  const auto events = changes.next();
  ASSERT_THAT(namesOf(events), ElementsAre("state"));
  EXPECT_EQ(events[0].data["output"], Json({"new"}));
}

TEST_F(GatewayPanelChanges, OutlivesAFileThatIsNoUnit) {
  Unit::remove(folder());
  append(Unit::file(folder()), std::string(8192, 'x'));
  Changes changes(source());
  changes.next();
  EXPECT_FALSE(changes.hasUnit());
  EXPECT_EQ(answerCall(source(), "/api/state", {})->status, 503);
  EXPECT_THROW(answerCall(source(), "/api/journal", {}), NoUnit);
}

TEST_F(GatewayPanelChanges, AnswersCallsAndKnowsNoOthers) {
  EXPECT_EQ(answerCall(source(), "/api/state", {})->json["unit"]["serial"], "1234");
  EXPECT_THAT(answerCall(source(), "/api/tables", {})->json, Contains("ProductionData"));
  EXPECT_EQ(answerCall(source(), "/api/tables/ProductionData", {})->json["rows"][0][1], "1234");
  EXPECT_EQ(answerCall(source(), "/api/tables/sqlite_master", {})->status, 404);
  EXPECT_EQ(answerCall(source(), "/api/nothing", {}), std::nullopt);
  for (const char* const limit : {"0", "1001", "-1", "x", "", "1 ", "99999999999999999999"})
    EXPECT_THROW(answerCall(source(), "/api/journal", {{"limit", limit}}), std::invalid_argument) << limit;
}

TEST_F(GatewayPanelLine, ListsTheUnitsOfALineToEachOfThem) {
  for (const char* const name : {"unit2", "unit1", "other"})
    Unit::open(folder() / name);
  const Json line = lineOf(folder() / "unit1");
  ASSERT_THAT(line, SizeIs(2));
  EXPECT_EQ(line[1], Json({{"name", "unit2"},
                           {"address", ""},
                           {"folder", (folder() / "unit2").string()},
                           {"panel", ""},
                           {"phase", "off"}}));
  EXPECT_THAT(lineOf(folder() / "other"), IsEmpty());
  EXPECT_THAT(lineOf(folder() / "nothing" / "unit1"), IsEmpty());
}

TEST_F(GatewayPanelAction, DoesWhatTheWordsSay) {
  const auto unit = Unit::open(folder());
  EXPECT_EQ(doAction(folder(), R"({"words":["set","ProductionData","SerialNum","\u00ff"]})").status, 200);
  EXPECT_EQ(unit->cell("ProductionData", 0, "SerialNum"), "\xFF");
  EXPECT_EQ(doAction(folder(), R"({"words":["set","NoTable","SerialNum","1"]})").status, 409);
  EXPECT_EQ(doAction(folder(), R"({"words":["jump"]})").status, 400);
  for (const char* const body :
       {"", "[]", "{}", "7", R"({"words":{}})", R"({"words":[[]]})", R"({"words":["\ud800"]})"})
    EXPECT_EQ(doAction(folder(), body).status, 400) << body;
  EXPECT_EQ(doAction(folder() / "nothing", R"({"words":["press","reset"]})").status, 503);
  EXPECT_FALSE(Unit::exists(folder() / "nothing"));
}

TEST_F(GatewayPanelOutput, KeepsTheNewestLinesOfTheFileAsItIsFound) {
  std::string text;
  for (int line = 1; line <= 20'000; ++line)
    text += "line " + std::to_string(line) + "\n";
  append(folder() / outputFile, text);
  OutputTail tail(folder());
  tail.poll();
  EXPECT_THAT(tail.newest(), SizeIs(OutputTail::keptLines));
  EXPECT_EQ(tail.newest().back(), "line 20000");
}

TEST_F(GatewayPanelOutput, ReadsOnInTheFileThatTakesTheOthersPlace) {
  OutputTail tail(folder());
  EXPECT_THAT(tail.poll(), IsEmpty());
  append(folder() / outputFile, "one\n");
  EXPECT_THAT(tail.poll(), ElementsAre("one"));
  append(folder() / outputFile, "two\n");
  std::filesystem::rename(folder() / outputFile, folder() / olderOutputFile);
  append(folder() / outputFile, "three\n");
  std::vector<std::string> lines = tail.poll();
  for (int poll = 0; poll < 2; ++poll)
    for (const std::string& line : tail.poll())
      lines.push_back(line);
  EXPECT_THAT(lines, ElementsAre("two", "three"));
}

TEST_F(GatewayPanelOutput, EndsALineThatHasNoEnd) {
  append(folder() / outputFile, std::string(OutputTail::longestLine + 1, 'x') + "\n");
  EXPECT_THAT(OutputTail(folder()).poll(), ElementsAre(std::string(OutputTail::longestLine, 'x'), "x"));
}

TEST(GatewayPanelFeed, GivesEventsInTheirOrder) {
  Feed feed;
  feed.push(eventText("a", Json::object()));
  feed.push(eventText("b", Json({1})));
  EXPECT_EQ(**feed.next(patience), "event: a\ndata: {}\n\n");
  EXPECT_EQ(**feed.next(patience), "event: b\ndata: [1]\n\n");
  EXPECT_EQ(feed.next(1ms), std::nullopt);
  EXPECT_FALSE(feed.isClosed());
}

TEST(GatewayPanelFeed, GivesUpAPageThatIsTooFarBehind) {
  Feed feed;
  const EventText event = eventText("a", std::string(Feed::byteLimit / 4, 'x'));
  for (int i = 0; i < 3; ++i)
    feed.push(event);
  EXPECT_FALSE(feed.isClosed());
  feed.push(event);
  EXPECT_TRUE(feed.isClosed());
  EXPECT_EQ(feed.next(patience), std::nullopt);
}

TEST(GatewayPanelFeed, TakesWhatIsLongByItself) {
  Feed feed;
  feed.push(eventText("a", std::string(2 * Feed::byteLimit, 'x')));
  EXPECT_TRUE(feed.next(patience));
}

TEST_F(GatewayPanelWatch, GreetsWithTheStateAndTellsChanges) {
  Watch watch(source());
  const auto feed = watch.connect();
  EXPECT_THAT(nextEvent(*feed), HasSubstr("event: state\n"));
  runAction(unit(), {"press", "reset"});
  const std::string change = nextEvent(*feed);
  EXPECT_THAT(change, HasSubstr("event: change\ndata: {\"buttons\""));
  const auto second = watch.connect();
  EXPECT_THAT(nextEvent(*second), HasSubstr("{\"name\":\"reset\",\"pressed\":true}"));
}

TEST_F(GatewayPanelWatch, HasAnEndOfPages) {
  Watch watch(source());
  std::vector<std::shared_ptr<Feed>> feeds;
  for (std::size_t page = 0; page < Watch::pageLimit; ++page)
    feeds.push_back(watch.connect());
  EXPECT_THAT(feeds, Not(Contains(nullptr)));
  EXPECT_EQ(watch.connect(), nullptr);
  EXPECT_THAT(nextEvent(*feeds[0]), HasSubstr("event: state\n"));
  watch.disconnect(feeds[0]);
  EXPECT_NE(watch.connect(), nullptr);
}
