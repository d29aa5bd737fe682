#pragma once
// USB storage devices plugged into the unit.

#include <string>
#include <vector>

namespace gateway {

class Unit;

struct UsbDevice {
  std::string vendor;                 ///< the kernel shows 8 characters
  std::string model;                  ///< 16 characters
  std::string rev;                    ///< 4 characters
  std::string type = "Direct-Access"; ///< as the kernel names it, 17 characters
  int ansiRevision = 2;
  bool operator==(const UsbDevice&) const = default;
};

/// Plugs a device in, behind those that are there. Any process.
void plugUsb(Unit& unit, const UsbDevice& device);
/// Unplugs all devices. Any process.
void unplugUsb(Unit& unit);
/// The devices in the order in which they were plugged in.
std::vector<UsbDevice> usbDevices(Unit& unit);

} // namespace gateway
