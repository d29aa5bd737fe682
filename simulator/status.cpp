#include "simulator/status.h"

#include <cstdarg>
#include <cstdio>

#include "simulator/controls.h"
#include "simulator/database.h"
#include "simulator/drivers/ethernet.h"
#include "simulator/drivers/gpio.h"
#include "simulator/drivers/wireless.h"
#include "simulator/faults.h"
#include "simulator/shown_text.h"
#include "simulator/unit.h"
#include "simulator/wire.h"
#include "simulator/wire_setting.h"

namespace gateway {

namespace {

constexpr const char* nothing = "none";

/// Lines of a label and what stands behind it.
class Screen {
public:
  void line(const char* label, const std::string& text) {
    char start[32];
    std::snprintf(start, sizeof start, "%-12s", label);
    m_text.append(start).append(shown(text)).append("\n");
  }
  const std::string& text() const { return m_text; }

private:
  std::string m_text;
};

__attribute__((format(printf, 1, 2))) std::string formatted(const char* format, ...) {
  char text[256];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  return text;
}

std::string productionCell(Unit& unit, const char* column) {
  return unit.cell("ProductionData", 0, column).value_or("");
}

/// How the service's last boot went on: "normal, ready", "safe boot, not ready".
std::string bootText(Unit& unit) {
  const std::vector<JournalRow> boots = unit.journal(0, "boot");
  if (boots.empty())
    return "never";
  const bool isReady = !unit.journal(boots.back().id, "ready").empty();
  return boots.back().text + (isReady ? ", ready" : ", not ready");
}

std::string testsText(const Unit& unit) {
  std::string names;
  for (const std::string& test : activeTests(unit.folder()))
    names.append(names.empty() ? "" : ", ").append(test);
  return names.empty() ? nothing : names;
}

void addFlash(Screen& screen, Unit& unit) {
  Query flash(unit.database(), "SELECT boot_mode, ftm_mode, ftm_version, next_boot FROM flash");
  if (!flash.next())
    return;
  screen.line("boot mode", formatted("0x%llx, FTM mode 0x%llx", static_cast<unsigned long long>(flash.number(0)),
                                     static_cast<unsigned long long>(flash.number(1))));
  screen.line("image", std::string(flash.text(2)));
  screen.line("next boot", std::string(flash.text(3)));
}

/// Names of the points of a kind that are on.
std::string pointsOn(const std::vector<GpioPoint>& points, std::string_view kind) {
  std::string names;
  for (const GpioPoint& point : points)
    if (point.kind == kind && point.isOn)
      names += (names.empty() ? "" : ", ") + point.name;
  return names.empty() ? nothing : names;
}

std::string buttonsText(Unit& unit) {
  std::string text;
  for (const Button& button : buttons())
    text.append(text.empty() ? "" : ", ")
        .append(button.name)
        .append(isPressed(unit, button) ? " pressed" : " released");
  return text;
}

void addPorts(Screen& screen, Unit& unit) {
  for (const SwitchPort& port : switchPorts(unit)) {
    const std::string link = port.isUp ? "up, " + port.megabits + " Mbit/s" : "down";
    screen.line(formatted("port %d", port.number).c_str(),
                formatted("%-16s received %s, sent %s", link.c_str(), port.received.c_str(), port.sent.c_str()));
  }
}

void addRadio(Screen& screen, Unit& unit) {
  const RadioState radio = radioState(unit);
  screen.line("radio", formatted("%s, channel %d, %s, %s stations", radio.isUp ? "on" : "off", radio.channel,
                                 radio.country.c_str(), radio.stations.c_str()));
  screen.line("SSID", radio.ssid);
}

void addUsb(Screen& screen, Unit& unit) {
  const std::vector<UsbDevice> devices = usbDevices(unit);
  if (devices.empty())
    screen.line("USB", nothing);
  for (const UsbDevice& device : devices)
    screen.line("USB", device.vendor + " " + device.model + " " + device.rev);
}

void addWire(Screen& screen, Unit& unit) {
  const WireSetting wire = wireSetting(unit.database());
  screen.line("wire", wire.isClean() ? "clean"
                                     : formatted("loss %d %%, duplicates %d %%, delay %d ms, jitter %d ms, seed %u",
                                                 wire.loss, wire.duplicate, wire.delayMs, wire.jitterMs, wire.seed));
}

void addFaults(Screen& screen, Unit& unit) {
  const std::vector<std::string> faults = unit.faults().names();
  if (faults.empty())
    screen.line("faults", nothing);
  for (const std::string& fault : faults)
    screen.line("fault", fault);
}

} // namespace

std::string statusText(Unit& unit) {
  const std::vector<GpioPoint> points = gpioPoints(unit.database());
  Screen screen;
  screen.line("model", productionCell(unit, "ModelNum"));
  screen.line("serial", productionCell(unit, "SerialNum"));
  screen.line("MAC", productionCell(unit, "MacAddr"));
  screen.line("boot", bootText(unit));
  addFlash(screen, unit);
  screen.line("tests", testsText(unit));
  screen.line("LEDs", isInTestMode(unit.database()) ? "held by the test station" : "driven by the unit");
  screen.line("  lit", pointsOn(points, "led"));
  screen.line("buttons", buttonsText(unit));
  screen.line("relays", pointsOn(points, "relay"));
  screen.line("outputs", pointsOn(points, "output"));
  screen.line("DSL line", std::string(lineStateName(lineState(unit.database()))));
  addPorts(screen, unit);
  screen.line("traffic", isTrafficOn(unit) ? "on" : "off");
  addRadio(screen, unit);
  addUsb(screen, unit);
  addWire(screen, unit);
  addFaults(screen, unit);
  return screen.text();
}

} // namespace gateway
