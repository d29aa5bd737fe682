#include "simulator/scenario/scenario.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>

#include "simulator/drivers/gpio.h"
#include "simulator/scenario/player.h"
#include "tests/unit/bench_unit.h"
#include "tests/unit/fake_network.h"

using namespace std::chrono_literals;
using gateway::BadLine;
using gateway::Condition;
using gateway::parseScenario;
using gateway::Scenario;
using gateway::Step;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;
using testing::StartsWith;

namespace {

/// The one step of a line.
Step stepOf(const std::string& line) {
  const Scenario scenario = parseScenario(line, ".");
  for (const BadLine& bad : scenario.badLines)
    ADD_FAILURE() << line << ": " << bad.reason;
  return scenario.steps.empty() ? Step{} : scenario.steps.front();
}

} // namespace

// The format.

TEST(GatewayScenario, HasCommentsAndEmptyLines) {
  const Scenario scenario = parseScenario("# first\n\n  press reset # and hold\r\n\t\n#\nline down", ".");
  EXPECT_THAT(scenario.badLines, IsEmpty());
  ASSERT_THAT(scenario.steps, SizeIs(2));
  EXPECT_EQ(scenario.steps[0].line, 3);
  EXPECT_EQ(scenario.steps[0].text, "press reset");
  EXPECT_EQ(scenario.steps[1].line, 6);
  EXPECT_THAT(parseScenario("", ".").steps, IsEmpty());
}

TEST(GatewayScenario, SaysWhenAStepStarts) {
  EXPECT_EQ(stepOf("press reset").start, Step::Start::now);
  EXPECT_EQ(stepOf("at 1.5s press reset").start, Step::Start::at);
  EXPECT_EQ(stepOf("at 1.5s press reset").time, 1500ms);
  EXPECT_EQ(stepOf("after 200ms press reset").start, Step::Start::after);
  EXPECT_EQ(stepOf("after 200ms press reset").time, 200ms);
  EXPECT_EQ(stepOf("after 0.25min press reset").time, 15s);
  EXPECT_EQ(stepOf("after 0s press reset").text, "press reset");
}

TEST(GatewayScenario, HoldsActions) {
  const Step step = stepOf("radio ssid 'The other'");
  EXPECT_EQ(step.kind, Step::Kind::action);
  EXPECT_THAT(step.words, ElementsAre("radio", "ssid", "The other"));
  EXPECT_THAT(step.undo, IsEmpty());
  EXPECT_EQ(stepOf("refused radio channel 3").kind, Step::Kind::refusal);
  EXPECT_THAT(stepOf("refused radio channel 3").words, ElementsAre("radio", "channel", "3"));
  EXPECT_EQ(stepOf("refused port 9 up").kind, Step::Kind::refusal);
}

TEST(GatewayScenario, TakesActionsBackAfterAWhile) {
  struct Sample {
    const char* action;
    std::vector<std::string> undo;
  };
  const Sample samples[] = {
      {"press reset", {"release", "reset"}},
      {"release wps", {"press", "wps"}},
      {"fault on table Xcvr", {"fault", "off", "table", "Xcvr"}},
      {"fault off commit", {"fault", "on", "commit"}},
      {"line down", {"line", "up"}},
      {"line train", {"line", "up"}},
      {"port 2 up", {"port", "2", "down"}},
      {"port 1 down", {"port", "1", "up"}},
      {"traffic on", {"traffic", "off"}},
      {"traffic off", {"traffic", "on"}},
      {"radio down", {"radio", "up"}},
      {"radio up", {"radio", "down"}},
      {"station join", {"station", "leave"}},
      {"usb plug --vendor A --model B", {"usb", "unplug"}},
      {"wire loss 20", {"wire", "loss", "0"}},
      {"wire duplicate 20", {"wire", "duplicate", "0"}},
      {"wire delay 20 --jitter 5", {"wire", "delay", "0"}},
  };
  for (const Sample& sample : samples) {
    const Step step = stepOf(std::string("for 2s ") + sample.action);
    EXPECT_EQ(step.duration, 2s) << sample.action;
    EXPECT_EQ(step.undo, sample.undo) << sample.action;
  }
  EXPECT_EQ(stepOf("at 1s for 2s press reset").time, 1s);
}

TEST(GatewayScenario, HoldsTransfers) {
  const Step read = stepOf("read file");
  EXPECT_EQ(read.kind, Step::Kind::read);
  EXPECT_EQ(read.file, "file");
  EXPECT_FALSE(read.error);
  EXPECT_THAT(stepOf("read file expect A=1 B/C='a b' D=").values,
              ElementsAre(Pair("A", "1"), Pair("B/C", "a b"), Pair("D", "")));
  EXPECT_EQ(stepOf("read file expect error 'no such file'").error, "no such file");
  const Step write = stepOf(R"(write file text "<A/>\n")");
  EXPECT_EQ(write.kind, Step::Kind::write);
  EXPECT_EQ(write.content, "<A/>\n");
  EXPECT_FALSE(write.error);
  EXPECT_EQ(stepOf("write file text '' expect error E").error, "E");
}

TEST(GatewayScenario, TakesFilesFromItsFolder) {
  std::string folder = (std::filesystem::temp_directory_path() / "scenario-XXXXXX").string();
  ASSERT_NE(mkdtemp(folder.data()), nullptr);
  const std::string bytes("a\0\n\xff", 4);
  std::ofstream(std::filesystem::path(folder) / "content", std::ios::binary) << bytes;
  const Scenario scenario = parseScenario("write file file content", folder);
  ASSERT_THAT(scenario.steps, SizeIs(1));
  EXPECT_EQ(scenario.steps[0].content, bytes);
  std::filesystem::remove_all(folder);
}

TEST(GatewayScenario, HoldsConditions) {
  const Step row = stepOf("wait row log 'FTM Started' within 1min");
  EXPECT_EQ(row.kind, Step::Kind::wait);
  EXPECT_EQ(row.condition.kind, Condition::Kind::row);
  EXPECT_EQ(row.condition.name, "log");
  EXPECT_EQ(row.condition.text, "FTM Started");
  EXPECT_EQ(row.limit, 1min);
  EXPECT_EQ(stepOf("wait row log within 1s").condition.text, "");
  EXPECT_EQ(stepOf("wait ready").limit, 10s);
  EXPECT_EQ(stepOf("wait ready").condition.kind, Condition::Kind::ready);
  EXPECT_EQ(stepOf("expect ready").limit, 0s);
  EXPECT_EQ(stepOf("expect row boot").limit, 10s);
  EXPECT_EQ(stepOf("expect led ePowerGrnLed off").condition.text, "off");
  const Step cell = stepOf("expect cell WlanStations Stations 5 --row 1");
  EXPECT_EQ(cell.kind, Step::Kind::expect);
  EXPECT_EQ(cell.condition.name, "WlanStations");
  EXPECT_EQ(cell.condition.column, "Stations");
  EXPECT_EQ(cell.condition.text, "5");
  EXPECT_EQ(cell.condition.row, 1);
  EXPECT_EQ(stepOf("expect status 'DSL line' up").condition.name, "DSL line");
}

TEST(GatewayScenario, ReportsEveryBadLineWithItsNumber) {
  constexpr const char* badLines[] = {
      "sideways",
      "press",
      "press power",
      "'press reset",
      "at",
      "at 1s",
      "at 1 press reset",
      "at s press reset",
      "at -1s press reset",
      "at 1h press reset",
      "at 1e3s press reset",
      "at nans press reset",
      "after",
      "after 25h press reset",
      "after 1500min press reset",
      "for",
      "for 1s",
      "for 1s kill",
      "for 1s set ProductionData SerialNum 1",
      "for 1s wire clear",
      "for 1s read file",
      "for long press reset",
      "refused",
      "refused sideways",
      "fault on nothing",
      "fault off nothing",
      "port 9 up",
      "speed 1 50",
      "wire loss 101",
      "set Nothing SerialNum 1",
      "circuit new 2.8.36 02:1a:2b:00:00:01",
      "read",
      "read file please",
      "read file expect",
      "read file expect error",
      "read file expect error E more",
      "read file expect A",
      "read file expect =1",
      "write",
      "write file",
      "write file text",
      "write file content",
      "write file text T more",
      "write file text T expect",
      "write file text T expect A=1",
      "write file text T expect error",
      "write file file none",
      "write file file .",
      "wait",
      "wait 1s",
      "wait ready within",
      "wait ready within soon",
      "wait ready now",
      "wait row",
      "wait row boot a b",
      "expect",
      "expect row boot within 1s",
      "expect nothing",
      "expect led",
      "expect led ePowerGrnLed",
      "expect led ePowerGrnLed red",
      "expect led eNoLed on",
      "expect led eResetSwInput on",
      "expect cell ProductionData",
      "expect cell ProductionData SerialNum",
      "expect cell ProductionData Nothing 1",
      "expect cell Nothing SerialNum 1",
      "expect cell ProductionData SerialNum 1 --row",
      "expect cell ProductionData SerialNum 1 --row -1",
      "expect cell ProductionData SerialNum 1 --row 1x",
      "expect status",
      "expect status serial",
      "panel",
      "up",
      "play file",
  };
  std::string text;
  for (const char* const line : badLines)
    text.append("press reset\n").append(line).append("\n");
  const Scenario scenario = parseScenario(text, ".");
  EXPECT_THAT(scenario.steps, SizeIs(std::size(badLines)));
  ASSERT_THAT(scenario.badLines, SizeIs(std::size(badLines)));
  for (std::size_t index = 0; index < std::size(badLines); ++index) {
    EXPECT_EQ(scenario.badLines[index].line, 2 * static_cast<int>(index) + 2) << badLines[index];
    EXPECT_THAT(scenario.badLines[index].reason, testing::Not(IsEmpty())) << badLines[index];
  }
}

TEST(GatewayScenario, HasTimesThatDoNotGoBack) {
  const Scenario scenario = parseScenario("at 2s press reset\nat 1s release reset\nat 2s release reset\n", ".");
  ASSERT_THAT(scenario.badLines, SizeIs(1));
  EXPECT_EQ(scenario.badLines[0].line, 2);
  EXPECT_THAT(scenario.badLines[0].reason, HasSubstr("before"));
}

// Playing.

namespace {

class GatewayPlayer : public BenchUnit {
protected:
  /// Plays a scenario; returns why it failed, or "".
  std::string play(const std::string& text) {
    const Scenario scenario = parseScenario(text, ".");
    for (const BadLine& line : scenario.badLines)
      ADD_FAILURE() << line.line << ": " << line.reason;
    gateway::Player player(
        unit(), m_network, [this](const std::string& line) { m_said.push_back(line); }, m_isInterrupted);
    return player.play(scenario).value_or("");
  }

  FakeNetwork m_network;
  std::vector<std::string> m_said;
  std::function<bool()> m_isInterrupted = [] { return false; };
};

} // namespace

TEST_F(GatewayPlayer, DoesTheStepsAtTheirTimesAndSaysEach) {
  EXPECT_EQ(play("press reset\nafter 1.5s line down\nat 2s release reset\nat 2s line up"), "");
  EXPECT_THAT(journal("action"), ElementsAre("press reset", "line down", "release reset", "line up"));
  EXPECT_THAT(m_said, ElementsAre("   0.000 s  line 1    press reset", "   1.500 s  line 2    line down",
                                  "   2.000 s  line 3    release reset", "   2.000 s  line 4    line up"));
}

TEST_F(GatewayPlayer, TakesBackWhatIsForAWhile) {
  EXPECT_EQ(play("for 2s fault on commit\nfor 1s press reset\nafter 1500ms line down\nread file expect error "
                 "\"the unit doesn't answer\""),
            "");
  EXPECT_THAT(journal("action"),
              ElementsAre("fault on commit", "press reset", "release reset", "line down", "fault off commit"));
  EXPECT_THAT(m_said.back(), EndsWith("line 1    fault off commit"));
  EXPECT_THAT(m_said.back(), StartsWith("   2.000 s"));
}

TEST_F(GatewayPlayer, WaitsAtTheEndForWhatIsToBeTakenBack) {
  EXPECT_EQ(play("for 2s fault on commit"), "");
  EXPECT_FALSE(unit().hasFault("commit"));
  EXPECT_EQ(m_network.now(), 2s);
}

TEST_F(GatewayPlayer, TakesEverythingBackAtOnceAfterAFailure) {
  EXPECT_THAT(play("for 2s fault on commit\nexpect led ePowerGrnLed off\npress reset"), StartsWith("line 2: "));
  EXPECT_FALSE(unit().hasFault("commit"));
  EXPECT_EQ(m_network.now(), 0s);
  EXPECT_THAT(journal("action"), ElementsAre("fault on commit", "fault off commit"));
}

TEST_F(GatewayPlayer, FailsWhereSomethingCannotBeTakenBack) {
  EXPECT_THAT(play("for 2s station join\nradio down\nafter 5s line down"),
              "line 1: station leave: there is no station");
  EXPECT_THAT(journal("action"), ElementsAre("station join", "radio down"));
  EXPECT_EQ(m_network.now(), 2s); // it doesn't wait for the next step
}

TEST_F(GatewayPlayer, TakesEverythingBackAtOnceWhenItIsInterrupted) {
  for (const char* const waiting : {"at 1min press reset", "wait row boot within 1min", "read file", ""}) {
    const gateway::Network::Time end = m_network.now() + 1s;
    m_network.events.emplace(end, [] {});
    m_isInterrupted = [&] { return m_network.now() >= end; };
    EXPECT_EQ(play(std::string("for 2min fault on commit\nfor 1s usb plug --vendor A --model B\n") + waiting),
              "interrupted");
    EXPECT_FALSE(unit().hasFault("commit"));
    EXPECT_LT(m_network.now(), end + 3s) << waiting;
  }
}

TEST_F(GatewayPlayer, FailsAtAnActionThatIsRefused) {
  EXPECT_THAT(play("press reset\nstation leave\nline down"), "line 2: there is no station");
  EXPECT_THAT(journal("action"), ElementsAre("press reset"));
}

TEST_F(GatewayPlayer, KnowsWhatHasToBeRefused) {
  EXPECT_EQ(play("refused station leave\nstation join"), "");
  EXPECT_EQ(play("refused station leave"), "line 1: expected to be refused, but it was done");
}

TEST_F(GatewayPlayer, ComparesElementsOfAFileThatItReads) {
  const std::string document = "<?xml?>\n<M A=\"1\">\n<SERIAL_NUM>\n 4711 </SERIAL_NUM><E/><S><T>b</T></S><T>c</T></M>";
  const auto read = [&](const std::string& expected) {
    m_network.answers = {block(1, document)};
    return play("read file expect " + expected);
  };
  EXPECT_EQ(read("SERIAL_NUM=4711 E= M/S/T=b S/T=b M/SERIAL_NUM=4711"), "");
  EXPECT_EQ(read("SERIAL_NUM=471"), "line 1: expected SERIAL_NUM=471, but it is \"4711\"");
  EXPECT_EQ(read("SERIAL_NUM=4711 T=c"), "line 1: expected T=c, but it is \"b\"");
  EXPECT_EQ(read("SERIAL=4711"), "line 1: expected SERIAL=4711, but there is no such element");
  EXPECT_EQ(read("S/SERIAL_NUM=4711"), "line 1: expected S/SERIAL_NUM=4711, but there is no such element");
}

TEST_F(GatewayPlayer, ComparesHowATransferEnds) {
  const auto end = [&](const std::string& answer, const std::string& line) {
    m_network.answers = {answer, ack(1)};
    return play(line);
  };
  EXPECT_EQ(end(block(1, ""), "read file"), "");
  EXPECT_EQ(end(ack(0), "write file text T"), "");
  EXPECT_EQ(m_network.sent.back(), block(1, "T"));
  EXPECT_EQ(end(failure(0, "No"), "read file expect error No"), "");
  EXPECT_EQ(end(failure(0, "No"), "write file text T expect error No"), "");
  EXPECT_EQ(end(failure(0, "No"), "read file"), "line 1: it ended with the error \"No\"");
  EXPECT_EQ(end(failure(0, "No"), "write file text T expect error N"),
            "line 1: expected the error \"N\", but it is \"No\"");
  EXPECT_EQ(end(ack(0), "write file text T expect error No"), "line 1: expected the error \"No\", but it was done");
}

TEST_F(GatewayPlayer, WaitsForARowSinceTheLastAction) {
  unit().record("log", "too early");
  unit().journal();
  m_network.events.emplace(3s, [] { unit().record("log", "it came"); });
  EXPECT_EQ(play("press reset\nwait row log came\nexpect row log\nwait row button"), "");
  EXPECT_EQ(m_network.now(), 3s);
  EXPECT_EQ(play("line down\nwait row log came within 2s"),
            "line 2: wait row log came within 2s: but the journal has no such row");
  EXPECT_EQ(m_network.now(), 5s);
  EXPECT_EQ(play("line up\nexpect row log"), "line 2: expect row log: but the journal has no such row");
  EXPECT_EQ(m_network.now(), 15s);
}

TEST_F(GatewayPlayer, WaitsUntilTheServiceIsReady) {
  EXPECT_EQ(play("wait ready"), "line 1: wait ready: but it is not");
  unit().record("boot", "normal");
  unit().record("ready", "");
  EXPECT_EQ(play("expect ready"), "");
  EXPECT_EQ(play("press reset\nexpect ready"), "line 2: expect ready: but it is not"); // not since then
  m_network.events.emplace(m_network.now() + 3s, [] { unit().record("ready", ""); });
  EXPECT_EQ(play("press reset\nwait ready"), "");
}

TEST_F(GatewayPlayer, LooksAtLeds) {
  EXPECT_EQ(play("expect led ePowerGrnLed on\nexpect led eUSBGrnLed off"), "");
  EXPECT_EQ(play("expect led ePowerGrnLed off"), "line 1: expect led ePowerGrnLed off: but it is on");
  EXPECT_EQ(play("expect led eUSBGrnLed on"), "line 1: expect led eUSBGrnLed on: but it is off");
}

TEST_F(GatewayPlayer, LooksAtCells) {
  EXPECT_EQ(play("expect cell ProductionData SerialNum 1234\nset ProductionData SerialNum ''\nexpect cell "
                 "ProductionData SerialNum ''"),
            "");
  EXPECT_EQ(play("expect cell ProductionData SerialNum 1"),
            "line 1: expect cell ProductionData SerialNum 1: but it is \"\"");
  EXPECT_EQ(play("expect cell ProductionData SerialNum 1 --row 7"),
            "line 1: expect cell ProductionData SerialNum 1 --row 7: but there is no such row");
}

TEST_F(GatewayPlayer, LooksAtTheStatusScreen) {
  EXPECT_EQ(play("expect status 'DSL line' up\nexpect status radio 'channel 6'\nexpect status lit ePower"), "");
  EXPECT_EQ(play("expect status 'DSL line' down"), "line 1: expect status \"DSL line\" down: but it is \"up\"");
  EXPECT_EQ(play("expect status DSL up"), "line 1: expect status DSL up: but there is no such line");
  m_network.events.emplace(m_network.now() + 3s, [] { unit().setFault("commit", true); });
  EXPECT_EQ(play("wait status fault commit"), "");
  unit().setFault("socket", true);
  EXPECT_EQ(play("expect status fault commit\nexpect status fault socket"), "");
  EXPECT_EQ(play("expect status fault spawn"), "line 1: expect status fault spawn: but it is \"commit\", \"socket\"");
}
