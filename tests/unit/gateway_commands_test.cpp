#include "simulator/commands.h"

#include <gmock/gmock.h>

#include <stdexcept>

#include "simulator/database.h"
#include "simulator/drivers/wireless.h"
#include "simulator/faults.h"
#include "simulator/status.h"
#include "simulator/words.h"
#include "tests/unit/bench_unit.h"

using gateway::checkAction;
using gateway::runAction;
using gateway::splitWords;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

class GatewayCommands : public BenchUnit {
protected:
  static void act(std::string_view line) { runAction(unit(), splitWords(line)); }

  /// What the action says when it is refused.
  static std::string refusal(std::string_view line) {
    try {
      act(line);
    } catch (const std::invalid_argument& error) {
      return std::string("no action: ") + error.what();
    } catch (const std::runtime_error& error) {
      return error.what();
    }
    return "done";
  }
};

struct Sample {
  const char* before; ///< action that has to come first; null: none
  const char* action;
  const char* row;    ///< that it journals behind its own; null: none
  const char* status; ///< part of the status screen that it makes
};

constexpr Sample samples[] = {
    {nullptr, "press reset", "button reset pressed", "reset pressed, wps released"},
    {"press wps", "release wps", "button wps released", "reset released, wps released"},
    {nullptr, "line down", "line down", "DSL line    down"},
    {nullptr, "line train", "line training", "DSL line    training"},
    {"line down", "line up", "line up", "DSL line    up"},
    {nullptr, "usb plug --vendor Acme --model \"Stick 8 GB\"", "usb plugged Acme Stick 8 GB 1.00",
     "USB         Acme Stick 8 GB 1.00"},
    {nullptr, "usb plug --vendor Acme --model Disk --rev 9 --type CD-ROM", "usb plugged Acme Disk 9",
     "USB         Acme Disk 9"},
    {"usb plug --vendor Acme --model Disk", "usb unplug", "usb unplugged", "USB         none"},
    {nullptr, "port 2 up", "switch port 2 up", "port 2      up"},
    {nullptr, "port 1 down", "switch port 1 down", "port 1      down"},
    {nullptr, "speed 1 1000", "switch port 1 speed 1000", "port 1      up, 1000 Mbit/s"},
    {nullptr, "traffic on", "switch traffic on", "traffic     on"},
    {"traffic on", "traffic off", "switch traffic off", "traffic     off"},
    {nullptr, "radio down", "radio down", "radio       off"},
    {"radio down", "radio up", "radio up", "radio       on"},
    {"radio down", "radio channel 11", "radio channel 11", "channel 11"},
    {nullptr, "radio ssid \"The other one\"", "radio ssid The other one", "SSID        The other one"},
    {nullptr, "radio ssid press", "radio ssid press", "SSID        press"},
    {nullptr, "station join", "radio station joined", "1 stations"},
    {"station join", "station leave", "radio station left", "0 stations"},
    {nullptr, "set ProductionData SerialNum 4711", "write ProductionData 0 SerialNum=4711", "serial      4711"},
    {nullptr, "set ProductionData SerialNum \"47 11\"", "write ProductionData 0 SerialNum=47 11", "serial      47 11"},
    {nullptr, "set ProductionData SerialNum \"\"", "write ProductionData 0 SerialNum=", "serial      \n"},
    {nullptr, "set ProductionData SerialNum [a,b]", "write ProductionData 0 SerialNum=[a,b]", "serial      [a,b]"},
    {nullptr, "set WlanStations Stations 5 --row 0", "write WlanStations 0 Stations=5", "5 stations"},
    {nullptr, "wire loss 20", "wire loss 20", "loss 20 %"},
    {nullptr, "wire duplicate 5", "wire duplicate 5", "duplicates 5 %"},
    {nullptr, "wire delay 30", "wire delay 30 jitter 0", "delay 30 ms, jitter 0 ms"},
    {nullptr, "wire delay 30 --jitter 10", "wire delay 30 jitter 10", "delay 30 ms, jitter 10 ms"},
    {nullptr, "wire seed 4000000000", "wire seed 4000000000", "wire        clean"},
    {"wire loss 20", "wire clear", "wire clear", "wire        clean"},
    {nullptr, "fault on commit", nullptr, "fault       commit"},
    {nullptr, "fault on table SwitchStat", nullptr, "fault       table SwitchStat"},
    {"fault on commit", "fault off commit", nullptr, "faults      none"},
    {nullptr, "circuit new 1.8.36 02:1a:2b:00:00:09", "circuit new 1.8.36 02:1a:2b:00:00:09", "eInternetGrnLed"},
    {"circuit new 1.8.36 02:1a:2b:00:00:09", "circuit delete 1.8.36", "circuit deleted 1.8.36",
     "eDSLGrnLed, eWireless"},
};

constexpr const char* noActions[] = {
    "",
    "sideways",
    "press",
    "press power",
    "press reset wps",
    "line",
    "line sideways",
    "circuit",
    "circuit new 1.8.36",
    "usb",
    "usb plug --vendor A",
    "usb plug --model B",
    "usb unplug A",
    "port 2 sideways",
    "port one up",
    "port 2",
    "speed 1",
    "speed fast 100",
    "traffic",
    "traffic maybe",
    "radio",
    "radio channel x",
    "radio ssid",
    "radio ssid -name",
    "station",
    "station join 2",
    "set ProductionData SerialNum",
    "set ProductionData SerialNum 1 --row -1",
    "set ProductionData SerialNum 1 --row x",
    "fault",
    "fault on",
    "fault list",
    "kill 9",
    "kill kill",
    "reboot --hard",
    "press reset --unit x",
    "press --help",
    "--help",
    "up",
    "status",
    "journal",
};

struct Refusal {
  const char* action;
  const char* reason;
};

constexpr Refusal refusals[] = {
    {"wire loss 101", "101 is no percentage"},
    {"wire delay 60001", "up to 60000 ms"},
    {"port 0 up", "no such switch port"},
    {"port 6 up", "no such switch port"},
    {"speed 6 100", "no such switch port"},
    {"speed 1 50", "speed"},
    {"radio channel 3", "tuned while it is off"},
    {"radio ssid 123456789012345678901234567890123", "longer than 32"},
    {"station leave", "there is no station"},
    {"set Nothing SerialNum 1", "no such cell"},
    {"set ProductionData Nothing 1", "no such cell"},
    {"fault on nothing", "no such fault"},
    {"fault on table Nothing", "no such fault"},
    {"fault off nothing", "no such fault"},
    {"circuit new 2.8.36 02:1a:2b:00:00:01", "no such circuit"},
    {"circuit delete 1.9.9", "no such circuit"},
    {"kill", "no service runs"},
    {"reboot", "no service runs"},
    {"reboot --safe", "no service runs"},
};

} // namespace

TEST_F(GatewayCommands, DoWhatTheySayBehindARowOfTheirWords) {
  for (const Sample& sample : samples) {
    SCOPED_TRACE(sample.action);
    const auto before = gateway::useUnit(gateway::Unit::inMemory());
    if (sample.before != nullptr)
      act(sample.before);
    const std::size_t rows = journal().size();
    act(sample.action);
    std::vector<std::string> expected{std::string("action ") + sample.action};
    if (sample.row != nullptr)
      expected.emplace_back(sample.row);
    const std::vector<std::string> all = journal();
    EXPECT_EQ(std::vector<std::string>(all.begin() + static_cast<std::ptrdiff_t>(rows), all.end()), expected);
    EXPECT_THAT(gateway::statusText(unit()), HasSubstr(sample.status));
  }
}

TEST_F(GatewayCommands, AreCheckedWithoutBeingDone) {
  const std::string before = gateway::statusText(unit());
  for (const Sample& sample : samples)
    EXPECT_NO_THROW(checkAction(splitWords(sample.action))) << sample.action;
  for (const Refusal& sample : refusals)
    EXPECT_NO_THROW(checkAction(splitWords(sample.action))) << sample.action;
  EXPECT_EQ(gateway::statusText(unit()), before);
  EXPECT_THAT(journal(), IsEmpty());
}

TEST_F(GatewayCommands, AreNoneWithOtherWords) {
  for (const char* const line : noActions) {
    EXPECT_THAT(refusal(line), HasSubstr("no action: ")) << line;
    EXPECT_THROW(checkAction(splitWords(line)), std::invalid_argument) << line;
  }
  EXPECT_THAT(journal(), IsEmpty());
}

TEST_F(GatewayCommands, ChangeNothingWhenTheyAreRefused) {
  const std::string before = gateway::statusText(unit());
  for (const Refusal& sample : refusals) {
    EXPECT_THAT(refusal(sample.action), HasSubstr(sample.reason)) << sample.action;
    EXPECT_THAT(refusal(sample.action), Not(HasSubstr("no action"))) << sample.action;
  }
  EXPECT_EQ(gateway::statusText(unit()), before);
  EXPECT_THAT(journal("action"), IsEmpty());
  EXPECT_THAT(journal("circuit"), Contains("refused 1.9.9"));
  EXPECT_EQ(unit().database().firstRow("SELECT next_boot FROM flash").at(0), gateway::normalBoot);
}

TEST_F(GatewayCommands, TakeTextsThatBeginWithADashBehindTheMark) {
  act("radio ssid -- -name");
  EXPECT_EQ(gateway::radioState(unit()).ssid, "-name");
  act("set ProductionData SerialNum -- --row");
  EXPECT_EQ(unit().cell("ProductionData", 0, "SerialNum"), "--row");
  act("set WlanStations Stations --row 1 -- -7");
  EXPECT_EQ(unit().cell("WlanStations", 1, "Stations"), "-7");
  act("usb plug --vendor=-A --model=--");
  EXPECT_EQ(journal("usb").back(), "plugged -A -- 1.00");
  // A row has its words in such an order that they are the same action again.
  const std::vector<std::string> rows = journal("action");
  EXPECT_THAT(rows, ElementsAre("radio ssid -- -name", "set -- ProductionData SerialNum --row",
                                "set --row 1 -- WlanStations Stations -7", "usb plug --vendor=-A --model=--"));
  for (const std::string& row : rows) {
    act(row);
    EXPECT_EQ(journal("action").back(), row);
  }
}

TEST_F(GatewayCommands, KeepEmptyAndOddTextsAsTheyAre) {
  act(R"(usb plug --vendor "" --model "")");
  EXPECT_EQ(journal("usb").back(), "plugged   1.00");
  const std::string odd = "\xfc \"\\ %s\t;a,b";
  runAction(unit(), {"set", "ProductionData", "SerialNum", odd});
  EXPECT_EQ(unit().cell("ProductionData", 0, "SerialNum"), odd);
  for (const std::string& row : journal("action")) {
    act(row);
    EXPECT_EQ(journal("action").back(), row);
  }
}

TEST_F(GatewayCommands, ComeBehindWhatWasRecordedBeforeThem) {
  unit().record("log", "before");
  act("line down");
  EXPECT_THAT(journal(), ElementsAre("log before", "action line down", "line down"));
}
