#pragma once
// The board's user I/O points: LEDs, relays, other outputs, and inputs such as the buttons.

#include <string>
#include <vector>

namespace gateway {

class Database;

struct GpioPoint {
  int number;
  std::string name;
  std::string kind; ///< "led", "relay", "output" or "input"
  bool isOn;        ///< lit or closed, as it can be seen at this moment
};

/// All points in the order of their numbers.
std::vector<GpioPoint> gpioPoints(Database& database);
/// Whether the driver leaves the LEDs to the test station.
bool isInTestMode(Database& database);
/// Closes or opens an input, as somebody does who presses a button. Throws std::runtime_error for a point that is none.
void setInput(Database& database, int number, bool isClosed);
/// Puts the driver where it is after a reboot: outside factory test mode, with all outputs off. The inputs stay as they
/// are: whoever presses a button goes on with that.
void restartGpio(Database& database);

} // namespace gateway
