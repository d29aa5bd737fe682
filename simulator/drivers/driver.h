#pragma once
// The drivers of the board, each in its own file. The tables in drivers.cpp say what there is.

#include <net/if.h>

#include <span>
#include <string>
#include <string_view>

namespace gateway {

class Unit;

/// How a driver takes requests. `argument` is as the caller gave it, null included.
struct Requests {
  /// Carries a request out. Returns 0 or more, or a negative errno.
  int (*answer)(Unit& unit, unsigned long request, void* argument);
  /// The request's record as the journal shows it; empty for a request without one.
  std::string (*record)(unsigned long request, const void* argument);
  /// What follows once an answered request has been journalled; null when nothing does.
  void (*afterwards)(Unit& unit, unsigned long request) = nullptr;
};

/// A character device.
struct Driver {
  const char* path;
  Requests requests;
};

/// A request that a network driver takes on a control socket, with a struct ifreq.
struct SocketDriver {
  unsigned long request;
  Requests requests;
};

/// A text file of the kernel.
struct TextFile {
  const char* path;
  std::string (*text)(Unit& unit);
};

/// What stands in the place of a device's path in the requests of a control socket.
constexpr std::string_view socketPath = "socket";

std::span<const SocketDriver> socketDrivers();
/// Null when there is none.
const Driver* findDriver(std::string_view path);
const SocketDriver* findSocketDriver(unsigned long request);
const TextFile* findTextFile(std::string_view path);

/// A request number as the journal and the names of faults have it: decimal up to 255, "0x..." above.
std::string requestText(unsigned long request);
/// Whether a text is one that requestText() gives.
bool isRequestText(std::string_view text);

/// Name of the interface that a control-socket request is for.
std::string interfaceName(const ifreq& request);

extern const Requests flashRequests;
extern const Requests gpioRequests;
extern const Requests adslRequests;
extern const Requests ethernetRequests;
extern const Requests wirelessRequests;

std::string networkDeviceText(Unit& unit);
std::string scsiListingText(Unit& unit);

} // namespace gateway
