#pragma once
// What somebody does to a unit with their hands. Every function journals what was done, works from any process, and
// throws std::runtime_error, with nothing changed, for what can't be done.

#include <span>
#include <string>
#include <string_view>

#include "simulator/drivers/line.h"
#include "simulator/drivers/scsi.h"

namespace gateway {

class Unit;

struct Button {
  std::string_view name;
  int point; ///< of the GPIO driver
};

/// The buttons of the unit.
std::span<const Button> buttons();

/// Presses a button and keeps it down, or lets it go.
void setButton(Unit& unit, std::string_view name, bool isPressed);
/// Whether somebody keeps the button down.
bool isPressed(Unit& unit, const Button& button);

/// Cuts the DSL line, lets it train, or has it up at once.
void controlLine(Unit& unit, LineState state);

void plugDevice(Unit& unit, const UsbDevice& device);
/// Unplugs all devices.
void unplugDevices(Unit& unit);

// The radio refuses some things in some states; here that is an error with its reason.

void tuneRadio(Unit& unit, int channel);
void nameRadio(Unit& unit, std::string_view ssid);
void joinRadio(Unit& unit);
void leaveRadio(Unit& unit);

} // namespace gateway
