#include "simulator/commands.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>

#include "simulator/circuit.h"
#include "simulator/controls.h"
#include "simulator/database.h"
#include "simulator/drivers/ethernet.h"
#include "simulator/drivers/wireless.h"
#include "simulator/existing_unit.h"
#include "simulator/faults.h"
#include "simulator/journal.h"
#include "simulator/store/tables.h"
#include "simulator/supervisor_lock.h"
#include "simulator/unit.h"
#include "simulator/wire_setting.h"
#include "simulator/words.h"

namespace gateway {

namespace {

constexpr const char* endOfOptions = "--";
constexpr int highestRow = 9999; // all rows before it are made, too

/// What the actions are given; one of them runs, and reads what it has asked for.
struct Arguments {
  std::string name;
  std::string text;
  std::string table;
  std::string column;
  std::vector<std::string> names;
  int number = 0;
  int megabits = 0;
  int jitterMs = 0;
  std::uint32_t seed = 0;
  int row = 0;
  bool isSafe = false;
  UsbDevice device;
};

using Effect = std::function<void(Unit&, const Arguments&)>;

/// An action as it was read.
struct Action {
  std::vector<std::string> words;
  std::function<void(Unit&)> effect;
};

bool startsWithDash(const std::string& word) {
  return word.starts_with('-');
}

void appendOption(std::vector<std::string>& words, const CLI::Option& option) {
  if (option.get_expected_max() == 0) {
    words.push_back(option.get_name());
    return;
  }
  for (const std::string& value : option.results()) {
    if (startsWithDash(value)) {
      words.push_back(option.get_name() + "=" + value);
      continue;
    }
    words.push_back(option.get_name());
    words.push_back(value);
  }
}

/// The words of a command that was read, without the options of the program itself.
std::vector<std::string> wordsOf(const CLI::App& command, const std::vector<const CLI::Option*>& foreign) {
  std::vector<std::string> words;
  for (const CLI::App* app = &command; app->get_parent() != nullptr; app = app->get_parent())
    words.insert(words.begin(), app->get_name());
  std::vector<std::string> values;
  std::vector<std::string> options;
  for (const CLI::Option* const option : command.get_options()) {
    if (std::ranges::find(foreign, option) != foreign.end())
      continue;
    if (option->get_positional())
      values.insert(values.end(), option->results().begin(), option->results().end());
    else if (option->count() > 0)
      appendOption(options, *option);
  }
  const bool needsMark = std::ranges::any_of(values, startsWithDash);
  if (needsMark)
    options.emplace_back(endOfOptions);
  words.insert(words.end(), options.begin(), options.end());
  words.insert(needsMark ? words.end() : words.end() - static_cast<std::ptrdiff_t>(options.size()), values.begin(),
               values.end());
  return words;
}

/// The actions as commands of a CLI11 application.
class Grammar {
public:
  using Done = std::function<void(const Action&)>;

  /// `done` gets the action that was read. A grammar of a program has a `folder` for its --unit.
  Grammar(CLI::App& app, std::string* folder, Done done)
      : m_app(app), m_folder(folder), m_done(std::make_shared<Done>(std::move(done))),
        m_arguments(std::make_shared<Arguments>()) {}

  CLI::App& add(const std::string& name, const std::string& description, Effect effect) {
    return add(m_app, name, description, std::move(effect));
  }

  /// The same, below another command.
  CLI::App& add(CLI::App& parent, const std::string& name, const std::string& description, Effect effect) {
    CLI::App* const command = parent.add_subcommand(name, description);
    std::vector<const CLI::Option*> foreign{command->get_help_ptr()};
    if (m_folder != nullptr)
      foreign.push_back(addUnitOption(*command, *m_folder));
    command->callback([command, foreign, done = m_done, arguments = m_arguments, effect = std::move(effect)] {
      (*done)({wordsOf(*command, foreign), [given = *arguments, effect](Unit& unit) { effect(unit, given); }});
    });
    return *command;
  }

  /// A command that is only the first word of others.
  CLI::App& addGroup(const std::string& name, const std::string& description) {
    CLI::App* const group = m_app.add_subcommand(name, description);
    group->require_subcommand(1);
    return *group;
  }

  Arguments& arguments() { return *m_arguments; }

private:
  CLI::App& m_app;
  std::string* const m_folder;
  std::shared_ptr<Done> m_done;
  std::shared_ptr<Arguments> m_arguments;
};

void addButtons(Grammar& grammar) {
  std::vector<std::string> names;
  for (const Button& button : buttons())
    names.emplace_back(button.name);
  for (const bool isPressed : {true, false}) {
    CLI::App& command =
        grammar.add(isPressed ? "press" : "release", isPressed ? "Press a button and keep it down" : "Let a button go",
                    [isPressed](Unit& unit, const Arguments& given) { setButton(unit, given.name, isPressed); });
    command.add_option("BUTTON", grammar.arguments().name)->required()->check(CLI::IsMember(names));
  }
}

void addLine(Grammar& grammar) {
  CLI::App& line = grammar.addGroup("line", "Handle the DSL line");
  const auto add = [&](const char* word, const char* description, LineState state) {
    grammar.add(line, word, description, [state](Unit& unit, const Arguments&) { controlLine(unit, state); });
  };
  add("down", "Cut the line", LineState::down);
  add("train", "Let the line train; it comes up after a while", LineState::training);
  add("up", "Have the line up at once", LineState::up);
}

void addUsb(Grammar& grammar) {
  CLI::App& usb = grammar.addGroup("usb", "Handle the USB port");
  CLI::App& plug = grammar.add(usb, "plug", "Plug a storage device in",
                               [](Unit& unit, const Arguments& given) { plugDevice(unit, given.device); });
  UsbDevice& device = grammar.arguments().device;
  plug.add_option("--vendor", device.vendor, "The kernel shows 8 characters")->required();
  plug.add_option("--model", device.model, "16 characters")->required();
  plug.add_option("--rev", device.rev, "4 characters")->default_val("1.00");
  plug.add_option("--type", device.type, "As the kernel names it")->capture_default_str();
  grammar.add(usb, "unplug", "Unplug all devices", [](Unit& unit, const Arguments&) { unplugDevices(unit); });
}

void addSwitch(Grammar& grammar) {
  CLI::App& port = grammar.add("port", "Plug or unplug a port of the switch", [](Unit& unit, const Arguments& given) {
    setPortLink(unit, given.number, given.name == "up");
  });
  port.add_option("PORT", grammar.arguments().number, "Counted from 1")->required();
  port.add_option("LINK", grammar.arguments().name)->required()->check(CLI::IsMember({"up", "down"}));

  CLI::App& speed =
      grammar.add("speed", "Set the speed that a port has while it is up",
                  [](Unit& unit, const Arguments& given) { setPortSpeed(unit, given.number, given.megabits); });
  speed.add_option("PORT", grammar.arguments().number, "Counted from 1")->required();
  speed.add_option("MBIT", grammar.arguments().megabits, "10, 100 or 1000")->required();

  CLI::App& traffic = grammar.add("traffic", "Let packets pass over every link that is up, or stop them",
                                  [](Unit& unit, const Arguments& given) { setTraffic(unit, given.name == "on"); });
  traffic.add_option("STATE", grammar.arguments().name)->required()->check(CLI::IsMember({"on", "off"}));
}

void addRadio(Grammar& grammar) {
  CLI::App& radio = grammar.addGroup("radio", "Handle the radio");
  grammar.add(radio, "up", "Switch it on", [](Unit& unit, const Arguments&) { setRadioPower(unit, true); });
  grammar.add(radio, "down", "Switch it off", [](Unit& unit, const Arguments&) { setRadioPower(unit, false); });
  grammar
      .add(radio, "channel", "Tune it; only while it is off",
           [](Unit& unit, const Arguments& given) { tuneRadio(unit, given.number); })
      .add_option("CHANNEL", grammar.arguments().number)
      ->required();
  grammar
      .add(radio, "ssid", "Name the network; only while it is on",
           [](Unit& unit, const Arguments& given) { nameRadio(unit, given.text); })
      .add_option("SSID", grammar.arguments().text)
      ->required();

  CLI::App& station = grammar.addGroup("station", "Handle wireless stations");
  grammar.add(station, "join", "A station joins the network", [](Unit& unit, const Arguments&) { joinRadio(unit); });
  grammar.add(station, "leave", "A station leaves it", [](Unit& unit, const Arguments&) { leaveRadio(unit); });
}

void setCell(Unit& unit, const Arguments& given) {
  unit.setCell(given.table, given.row, given.column, given.text);
  unit.record("write", writeText(given.table, given.row, given.column, given.text));
}

void addSet(Grammar& grammar) {
  Arguments& arguments = grammar.arguments();
  CLI::App& command = grammar.add("set", "Set a cell of the configuration store", setCell);
  command.add_option("TABLE", arguments.table)->required();
  command.add_option("COLUMN", arguments.column)->required();
  command.add_option("VALUE", arguments.text)->required();
  command.add_option("--row", arguments.row, "Row, counted from 0")->check(CLI::Range(0, highestRow));
}

void switchFault(Unit& unit, const Arguments& given, bool on) {
  std::string name;
  for (const std::string& word : given.names)
    name.append(name.empty() ? "" : " ").append(word);
  unit.setFault(name, on);
}

void addFault(Grammar& grammar) {
  CLI::App& fault = grammar.addGroup("fault", "Make things of the unit fail");
  for (const bool on : {true, false})
    grammar
        .add(fault, on ? "on" : "off", on ? "Switch one on" : "Switch one off",
             [on](Unit& unit, const Arguments& given) { switchFault(unit, given, on); })
        .add_option("NAME", grammar.arguments().names, "Name of the fault, as \"fault names\" shows them")
        ->required();
}

void requireCircuit(bool done, const std::string& circuit) {
  if (!done)
    throw std::runtime_error("there can be no such circuit: " + circuit);
}

void addCircuit(Grammar& grammar) {
  CLI::App& circuit = grammar.addGroup("circuit", "Change the ATM circuit of the data interface");
  CLI::App& make = grammar.add(circuit, "new", "Make a circuit", [](Unit& unit, const Arguments& given) {
    requireCircuit(newCircuit(unit, given.name, given.text), given.name);
  });
  CLI::App& unmake = grammar.add(circuit, "delete", "Delete a circuit", [](Unit& unit, const Arguments& given) {
    requireCircuit(deleteCircuit(unit, given.name), given.name);
  });
  for (CLI::App* const change : {&make, &unmake})
    change->add_option("CIRCUIT", grammar.arguments().name, "1.VPI.VCI")->required();
  make.add_option("MAC-ADDRESS", grammar.arguments().text)->required();
}

void addWire(Grammar& grammar) {
  Arguments& arguments = grammar.arguments();
  CLI::App& wire = grammar.addGroup("wire", "Make the wire to the stations worse");
  grammar
      .add(wire, "loss", "Lose datagrams", [](Unit& unit, const Arguments& given) { setWireLoss(unit, given.number); })
      .add_option("PERCENT", arguments.number)
      ->required();
  grammar
      .add(wire, "duplicate", "Let datagrams arrive twice",
           [](Unit& unit, const Arguments& given) { setWireDuplication(unit, given.number); })
      .add_option("PERCENT", arguments.number)
      ->required();
  CLI::App& delay = grammar.add(wire, "delay", "Delay datagrams", [](Unit& unit, const Arguments& given) {
    setWireDelay(unit, given.number, given.jitterMs);
  });
  delay.add_option("MS", arguments.number, "Of each")->required();
  delay.add_option("--jitter", arguments.jitterMs, "Milliseconds that one may take besides, at most");
  grammar
      .add(wire, "seed", "Choose the row of chances; it starts over at each change and each boot",
           [](Unit& unit, const Arguments& given) { setWireSeed(unit, given.seed); })
      .add_option("NUMBER", arguments.seed)
      ->required();
  grammar.add(wire, "clear", "Let everything pass", [](Unit& unit, const Arguments&) { clearWire(unit); });
}

void cutPower(Unit& unit, bool isSafe) {
  const RunningService service(unit.folder());
  if (isSafe)
    execute(unit.database(), "UPDATE flash SET next_boot = ?", safeBoot);
  unit.reboot(); // of the unit's state; this process is none of the unit's
  service.kill();
}

void addPower(Grammar& grammar) {
  grammar.add("kill", "Kill the service; the supervisor starts it again",
              [](Unit& unit, const Arguments&) { RunningService(unit.folder()).kill(); });
  grammar
      .add("reboot", "Cut the unit's power for a moment",
           [](Unit& unit, const Arguments& given) { cutPower(unit, given.isSafe); })
      .add_flag("--safe", grammar.arguments().isSafe, "Into safe boot");
}

void addAll(Grammar grammar) {
  addButtons(grammar);
  addLine(grammar);
  addUsb(grammar);
  addSwitch(grammar);
  addRadio(grammar);
  addSet(grammar);
  addFault(grammar);
  addCircuit(grammar);
  addWire(grammar);
  addPower(grammar);
}

Action parse(const std::vector<std::string>& words) {
  Action action;
  CLI::App app;
  app.set_help_flag();
  app.require_subcommand(1);
  addAll(Grammar(app, nullptr, [&](const Action& read) { action = read; }));
  try {
    app.parse(std::vector<std::string>(words.rbegin(), words.rend()));
  } catch (const CLI::Error& error) {
    throw std::invalid_argument(error.what());
  }
  return action;
}

/// Everything or nothing, and the row of the action before those of what it does: these are written after the commit.
void perform(Unit& unit, const Action& action) {
  unit.journalBook().flush();
  Transaction transaction(unit.database());
  unit.journalBook().insert("action", joinWords(action.words));
  action.effect(unit);
  transaction.commit();
}

} // namespace

void runAction(Unit& unit, const std::vector<std::string>& words) {
  perform(unit, parse(words));
}

void checkAction(const std::vector<std::string>& words) {
  parse(words);
}

void addActions(CLI::App& app, std::string& folder) {
  addAll(Grammar(app, &folder, [&folder](const Action& action) {
    const auto unit = existingUnit(folder);
    if (std::getenv(unitProcessVariable) != nullptr)
      action.effect(*unit);
    else
      perform(*unit, action);
  }));
}

} // namespace gateway
