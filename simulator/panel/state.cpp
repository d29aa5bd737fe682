#include "simulator/panel/state.h"

#include <charconv>

#include "platform/gpioctrl.h"
#include "simulator/controls.h"
#include "simulator/database.h"
#include "simulator/drivers/ethernet.h"
#include "simulator/drivers/gpio.h"
#include "simulator/drivers/line.h"
#include "simulator/drivers/scsi.h"
#include "simulator/drivers/wireless.h"
#include "simulator/faults.h"
#include "simulator/panel/life.h"
#include "simulator/unit.h"
#include "simulator/wire_setting.h"

namespace gateway {

namespace {

/// A number that the store keeps as a text; 0 when it is none.
std::int64_t numberOf(std::string_view text) {
  std::int64_t number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

std::string cellText(Unit& unit, const char* table, const char* column) {
  return utf8Of(unit.cell(table, 0, column).value_or(""));
}

Json textsOf(const std::vector<std::string>& texts) {
  Json list = Json::array();
  for (const std::string& text : texts)
    list.push_back(utf8Of(text));
  return list;
}

void addFlash(Json& section, Unit& unit) {
  Query flash(unit.database(), "SELECT boot_mode, ftm_mode, ftm_version, next_boot FROM flash");
  const bool isThere = flash.next();
  section["bootMode"] = isThere ? flash.number(0) : 0;
  section["ftmMode"] = isThere ? flash.number(1) : 0;
  section["image"] = isThere ? utf8Of(flash.text(2)) : "";
  section["nextBoot"] = isThere ? utf8Of(flash.text(3)) : "";
}

Json unitSection(Unit& unit, const Life& life, const Surroundings& surroundings) {
  Json section{{"folder", utf8Of(unit.folder().string())},
               {"model", cellText(unit, "ProductionData", "ModelNum")},
               {"serial", cellText(unit, "ProductionData", "SerialNum")},
               {"mac", cellText(unit, "ProductionData", "MacAddr")},
               {"phase", phaseOf(life, surroundings.isSupervised)},
               {"boot", utf8Of(life.bootKind())},
               {"boots", life.boots()},
               {"lastEnd", utf8Of(life.lastEnd())},
               {"activeTests", textsOf(surroundings.activeTests)}};
  addFlash(section, unit);
  return section;
}

Json pointOf(const GpioPoint& point) {
  return {{"number", point.number}, {"name", utf8Of(point.name)}, {"on", point.isOn}};
}

Json pointsOfKind(const std::vector<GpioPoint>& points, std::string_view kind) {
  Json list = Json::array();
  for (const GpioPoint& point : points)
    if (point.kind == kind)
      list.push_back(pointOf(point));
  return list;
}

/// The DSL pair, and which of the test pads are on.
Json outputsOf(const std::vector<GpioPoint>& points) {
  Json list = Json::array();
  for (const GpioPoint& point : points)
    if (point.kind == "output" && (point.isOn || point.number == eDSLPair))
      list.push_back(pointOf(point));
  return list;
}

Json buttonsOf(const std::vector<GpioPoint>& points) {
  Json list = Json::array();
  for (const Button& button : buttons())
    for (const GpioPoint& point : points)
      if (point.number == button.point)
        list.push_back({{"name", button.name}, {"pressed", point.isOn}});
  return list;
}

std::string circuitText(Unit& unit) {
  Query circuit(unit.database(),
                "SELECT \"Vpi\", \"Vci\" FROM \"VccStat\" WHERE \"Interface\" = 'nas0' ORDER BY rowid");
  return circuit.next() ? utf8Of(circuit.text(0)) + "." + utf8Of(circuit.text(1)) : "";
}

Json lineSection(Unit& unit) {
  return {{"state", lineStateName(lineState(unit.database()))},
          {"speedDown", numberOf(cellText(unit, "Xcvr", "SpeedDownstream"))},
          {"speedUp", numberOf(cellText(unit, "Xcvr", "SpeedUpstream"))},
          {"circuit", circuitText(unit)}};
}

Json portsSection(Unit& unit) {
  Json list = Json::array();
  for (const SwitchPort& port : switchPorts(unit))
    list.push_back({{"number", port.number},
                    {"up", port.isUp},
                    {"megabits", numberOf(port.megabits)},
                    {"received", numberOf(port.received)},
                    {"sent", numberOf(port.sent)}});
  return list;
}

Json radioSection(Unit& unit) {
  const RadioState radio = radioState(unit);
  return {{"up", radio.isUp},         {"ssid", utf8Of(radio.ssid)},
          {"channel", radio.channel}, {"country", utf8Of(radio.country)},
          {"mac", utf8Of(radio.mac)}, {"stations", numberOf(radio.stations)}};
}

Json usbSection(Unit& unit) {
  Json list = Json::array();
  for (const UsbDevice& device : usbDevices(unit))
    list.push_back({{"vendor", utf8Of(device.vendor)},
                    {"model", utf8Of(device.model)},
                    {"rev", utf8Of(device.rev)},
                    {"type", utf8Of(device.type)}});
  return list;
}

Json wireSection(Unit& unit) {
  const WireSetting wire = wireSetting(unit.database());
  return {{"loss", wire.loss},
          {"duplicate", wire.duplicate},
          {"delay", wire.delayMs},
          {"jitter", wire.jitterMs},
          {"seed", wire.seed}};
}

} // namespace

Json stateOf(Unit& unit, const Life& life, const Surroundings& surroundings) {
  const auto held = unit.database().lock();
  Json state;
  // The ports come first: they take the line, and so the LEDs, to this moment.
  state["ports"] = portsSection(unit);
  state["line"] = lineSection(unit);
  const std::vector<GpioPoint> points = gpioPoints(unit.database());
  state["unit"] = unitSection(unit, life, surroundings);
  state["leds"] = pointsOfKind(points, "led");
  state["testMode"] = isInTestMode(unit.database());
  state["buttons"] = buttonsOf(points);
  state["relays"] = pointsOfKind(points, "relay");
  state["outputs"] = outputsOf(points);
  state["traffic"] = isTrafficOn(unit);
  state["radio"] = radioSection(unit);
  state["usb"] = usbSection(unit);
  state["faults"] = textsOf(unit.faults().names());
  state["wire"] = wireSection(unit);
  return state;
}

Json stateOfNothing(const std::string& folder) {
  return {{"unit", {{"folder", utf8Of(folder)}, {"phase", offPhase}}}};
}

Json changedSections(const Json& before, const Json& now) {
  Json changes = Json::object();
  for (const auto& [key, section] : now.items())
    if (const auto old = before.find(key); old == before.end() || *old != section)
      changes[key] = section;
  return changes;
}

} // namespace gateway
