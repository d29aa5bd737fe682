#include "simulator/controls.h"

#include <algorithm>
#include <stdexcept>

#include "platform/gpioctrl.h"
#include "simulator/drivers/gpio.h"
#include "simulator/drivers/wireless.h"
#include "simulator/unit.h"

namespace gateway {

namespace {

constexpr Button unitButtons[] = {{"reset", eResetSwInput}, {"wps", eECSetupSwInput}};

const Button& buttonNamed(std::string_view name) {
  const auto* const found = std::ranges::find(unitButtons, name, &Button::name);
  if (found == std::end(unitButtons))
    throw std::runtime_error("the unit has no button " + std::string(name));
  return *found;
}

void require(bool done, const std::string& refusal) {
  if (!done)
    throw std::runtime_error(refusal);
}

} // namespace

std::span<const Button> buttons() {
  return unitButtons;
}

void setButton(Unit& unit, std::string_view name, bool isPressed) {
  setInput(unit.database(), buttonNamed(name).point, isPressed);
  unit.record("button", std::string(name) + (isPressed ? " pressed" : " released"));
}

bool isPressed(Unit& unit, const Button& button) {
  const std::vector<GpioPoint> points = gpioPoints(unit.database());
  return std::ranges::any_of(points,
                             [&](const GpioPoint& point) { return point.number == button.point && point.isOn; });
}

void controlLine(Unit& unit, LineState state) {
  setLineState(unit.database(), state);
  unit.record("line", lineStateName(state));
}

void plugDevice(Unit& unit, const UsbDevice& device) {
  plugUsb(unit, device);
  unit.record("usb", "plugged " + device.vendor + " " + device.model + " " + device.rev);
}

void unplugDevices(Unit& unit) {
  unplugUsb(unit);
  unit.record("usb", "unplugged");
}

void tuneRadio(Unit& unit, int channel) {
  require(setRadioChannel(unit, channel),
          "the radio has no channel " + std::to_string(channel) + ", or is on: it is tuned while it is off");
}

void nameRadio(Unit& unit, std::string_view ssid) {
  require(setRadioSsid(unit, ssid),
          "the name is longer than " + std::to_string(longestSsid) + " characters, or the radio is off");
}

void joinRadio(Unit& unit) {
  require(joinStation(unit), "the radio is off");
}

void leaveRadio(Unit& unit) {
  require(leaveStation(unit), "there is no station");
}

} // namespace gateway
