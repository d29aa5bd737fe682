#include "simulator/board_commands.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <functional>
#include <memory>
#include <string>

#include "simulator/controls.h"
#include "simulator/database.h"
#include "simulator/drivers/ethernet.h"
#include "simulator/drivers/gpio.h"
#include "simulator/drivers/wireless.h"
#include "simulator/existing_unit.h"
#include "simulator/status.h"
#include "simulator/unit.h"

namespace gateway {

namespace {

/// What the commands are given; one of them runs, and reads what it has asked for.
struct Arguments {
  std::string unit;
  std::string name;
  std::string text;
  int number = 0;
  int megabits = 0;
  UsbDevice device;
};

using Action = std::function<void(Unit&, const Arguments&)>;

class Commands {
public:
  explicit Commands(CLI::App& app) : m_app(app), m_arguments(std::make_shared<Arguments>()) {}

  /// A command of the program that does something with the unit.
  CLI::App& add(const std::string& name, const std::string& description, Action action) {
    return add(m_app, name, description, std::move(action));
  }

  /// The same, below another command.
  CLI::App& add(CLI::App& parent, const std::string& name, const std::string& description, Action action) {
    CLI::App* const command = parent.add_subcommand(name, description);
    addUnitOption(*command, m_arguments->unit);
    command->callback(
        [arguments = m_arguments, action = std::move(action)] { action(*existingUnit(arguments->unit), *arguments); });
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
  std::shared_ptr<Arguments> m_arguments;
};

void printLeds(Unit& unit, const Arguments&) {
  for (const GpioPoint& point : gpioPoints(unit.database()))
    if (point.kind == "led")
      std::printf("%3d  %-18s  %s\n", point.number, point.name.c_str(), point.isOn ? "on" : "off");
}

void addScreens(Commands& commands) {
  commands.add("status", "Show the whole unit on one screen",
               [](Unit& unit, const Arguments&) { std::fputs(statusText(unit).c_str(), stdout); });
  commands.add("led", "Show the LEDs by number and name", printLeds);
}

void addButtons(Commands& commands) {
  std::vector<std::string> names;
  for (const Button& button : buttons())
    names.emplace_back(button.name);
  for (const bool isPressed : {true, false}) {
    CLI::App& command =
        commands.add(isPressed ? "press" : "release", isPressed ? "Press a button and keep it down" : "Let a button go",
                     [isPressed](Unit& unit, const Arguments& given) { setButton(unit, given.name, isPressed); });
    command.add_option("BUTTON", commands.arguments().name)->required()->check(CLI::IsMember(names));
  }
}

void addLine(Commands& commands) {
  CLI::App& line = commands.addGroup("line", "Handle the DSL line");
  const auto add = [&](const char* word, const char* description, LineState state) {
    commands.add(line, word, description, [state](Unit& unit, const Arguments&) { controlLine(unit, state); });
  };
  add("down", "Cut the line", LineState::down);
  add("train", "Let the line train; it comes up after a while", LineState::training);
  add("up", "Have the line up at once", LineState::up);
}

void addUsb(Commands& commands) {
  CLI::App& usb = commands.addGroup("usb", "Handle the USB port");
  CLI::App& plug = commands.add(usb, "plug", "Plug a storage device in",
                                [](Unit& unit, const Arguments& given) { plugDevice(unit, given.device); });
  UsbDevice& device = commands.arguments().device;
  plug.add_option("--vendor", device.vendor, "The kernel shows 8 characters")->required();
  plug.add_option("--model", device.model, "16 characters")->required();
  plug.add_option("--rev", device.rev, "4 characters")->default_val("1.00");
  plug.add_option("--type", device.type, "As the kernel names it")->capture_default_str();
  commands.add(usb, "unplug", "Unplug all devices", [](Unit& unit, const Arguments&) { unplugDevices(unit); });
}

void addSwitch(Commands& commands) {
  CLI::App& port = commands.add("port", "Plug or unplug a port of the switch", [](Unit& unit, const Arguments& given) {
    setPortLink(unit, given.number, given.name == "up");
  });
  port.add_option("PORT", commands.arguments().number, "Counted from 1")->required();
  port.add_option("LINK", commands.arguments().name)->required()->check(CLI::IsMember({"up", "down"}));

  CLI::App& speed =
      commands.add("speed", "Set the speed that a port has while it is up",
                   [](Unit& unit, const Arguments& given) { setPortSpeed(unit, given.number, given.megabits); });
  speed.add_option("PORT", commands.arguments().number, "Counted from 1")->required();
  speed.add_option("MBIT", commands.arguments().megabits, "10, 100 or 1000")->required();

  CLI::App& traffic = commands.add("traffic", "Let packets pass over every link that is up, or stop them",
                                   [](Unit& unit, const Arguments& given) { setTraffic(unit, given.name == "on"); });
  traffic.add_option("STATE", commands.arguments().name)->required()->check(CLI::IsMember({"on", "off"}));
}

void addRadio(Commands& commands) {
  CLI::App& radio = commands.addGroup("radio", "Handle the radio");
  commands.add(radio, "up", "Switch it on", [](Unit& unit, const Arguments&) { setRadioPower(unit, true); });
  commands.add(radio, "down", "Switch it off", [](Unit& unit, const Arguments&) { setRadioPower(unit, false); });
  commands
      .add(radio, "channel", "Tune it; only while it is off",
           [](Unit& unit, const Arguments& given) { tuneRadio(unit, given.number); })
      .add_option("CHANNEL", commands.arguments().number)
      ->required();
  commands
      .add(radio, "ssid", "Name the network; only while it is on",
           [](Unit& unit, const Arguments& given) { nameRadio(unit, given.text); })
      .add_option("SSID", commands.arguments().text)
      ->required();

  CLI::App& station = commands.addGroup("station", "Handle wireless stations");
  commands.add(station, "join", "A station joins the network", [](Unit& unit, const Arguments&) { joinRadio(unit); });
  commands.add(station, "leave", "A station leaves it", [](Unit& unit, const Arguments&) { leaveRadio(unit); });
}

} // namespace

void addBoardCommands(CLI::App& app) {
  Commands commands(app);
  addScreens(commands);
  addButtons(commands);
  addLine(commands);
  addUsb(commands);
  addSwitch(commands);
  addRadio(commands);
}

} // namespace gateway
