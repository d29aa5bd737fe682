// The kernel's listing of SCSI devices, which USB storage devices are to it.
#include "simulator/drivers/scsi.h"

#include <algorithm>
#include <cstdio>

#include "simulator/database.h"
#include "simulator/drivers/driver.h"
#include "simulator/unit.h"

namespace gateway {

namespace {

constexpr std::size_t vendorWidth = 8;
constexpr std::size_t modelWidth = 16;
constexpr std::size_t revWidth = 4;
constexpr std::size_t typeWidth = 17;
constexpr const char* columns = "SELECT vendor, model, rev, type, ansi_rev, host FROM usb_devices ORDER BY host";

// Exactly `width` characters, with blanks for those that don't print.
std::string field(std::string_view text, std::size_t width) {
  std::string padded(text.substr(0, width));
  std::ranges::replace_if(
      padded, [](char character) { return static_cast<unsigned char>(character) < ' '; }, ' ');
  padded.resize(width, ' ');
  return padded;
}

UsbDevice deviceOf(const Query& row) {
  return {std::string(row.text(0)), std::string(row.text(1)), std::string(row.text(2)), std::string(row.text(3)),
          static_cast<int>(row.number(4))};
}

std::string entry(const UsbDevice& device, std::int64_t host) {
  char text[256];
  std::snprintf(text, sizeof text,
                "Host: scsi%d Channel: 00 Id: 00 Lun: 00\n"
                "  Vendor: %s Model: %s Rev: %s\n"
                "  Type:   %s                ANSI SCSI revision: %02x\n",
                static_cast<int>(host), field(device.vendor, vendorWidth).c_str(),
                field(device.model, modelWidth).c_str(), field(device.rev, revWidth).c_str(),
                field(device.type, typeWidth).c_str(), static_cast<unsigned int>(device.ansiRevision));
  return text;
}

} // namespace

void plugUsb(Unit& unit, const UsbDevice& device) {
  execute(unit.database(),
          "INSERT INTO usb_devices (host, vendor, model, rev, type, ansi_rev) "
          "SELECT coalesce(max(host) + 1, 0), ?, ?, ?, ?, ? FROM usb_devices",
          device.vendor, device.model, device.rev, device.type, device.ansiRevision);
}

void unplugUsb(Unit& unit) {
  execute(unit.database(), "DELETE FROM usb_devices");
}

std::vector<UsbDevice> usbDevices(Unit& unit) {
  std::vector<UsbDevice> devices;
  Query rows(unit.database(), columns);
  while (rows.next())
    devices.push_back(deviceOf(rows));
  return devices;
}

std::string scsiListingText(Unit& unit) {
  std::string text = "Attached devices:\n";
  Query rows(unit.database(), columns);
  while (rows.next())
    text += entry(deviceOf(rows), rows.number(5));
  return text;
}

} // namespace gateway
