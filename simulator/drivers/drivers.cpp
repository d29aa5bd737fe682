#include "simulator/drivers/driver.h"

#include <linux/sockios.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/adsldrv.h"
#include "platform/bcmnet.h"
#include "platform/flashmgmt.h"
#include "platform/gpioctrl.h"

namespace gateway {

namespace {

constexpr unsigned long largestDecimal = 255;

const std::array drivers{
    Driver{flashManagementDevice, flashRequests},
    Driver{gpioDevice, gpioRequests},
    Driver{adslDevice, adslRequests},
};

const std::array requestsOfSockets{
    SocketDriver{SIOCGIFFLAGS, ethernetRequests},
    SocketDriver{SIOCGLINKSTATE, ethernetRequests},
    SocketDriver{SIOCCURRENTSPEED, ethernetRequests},
    SocketDriver{SIOCDEVPRIVATE, wirelessRequests},
};

const std::array textFiles{
    TextFile{"/proc/net/dev", networkDeviceText},
    TextFile{"/proc/scsi/scsi", scsiListingText},
};

template <class Entries>
const auto* findPath(const Entries& entries, std::string_view path) {
  const auto found = std::ranges::find(entries, path, [](const auto& entry) { return std::string_view(entry.path); });
  return found == entries.end() ? nullptr : &*found;
}

} // namespace

std::span<const SocketDriver> socketDrivers() {
  return requestsOfSockets;
}

const Driver* findDriver(std::string_view path) {
  return findPath(drivers, path);
}

const TextFile* findTextFile(std::string_view path) {
  return findPath(textFiles, path);
}

const SocketDriver* findSocketDriver(unsigned long request) {
  const auto found = std::ranges::find(requestsOfSockets, request, &SocketDriver::request);
  return found == requestsOfSockets.end() ? nullptr : &*found;
}

std::string interfaceName(const ifreq& request) {
  return {request.ifr_name, strnlen(request.ifr_name, sizeof request.ifr_name)};
}

std::string requestText(unsigned long request) {
  char text[2 + 2 * sizeof request + 1];
  std::snprintf(text, sizeof text, request <= largestDecimal ? "%lu" : "0x%lx", request);
  return text;
}

bool isRequestText(std::string_view text) {
  const std::string number(text);
  return requestText(std::strtoul(number.c_str(), nullptr, 0)) == number;
}

} // namespace gateway
