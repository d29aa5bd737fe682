#pragma once
// The UDP ports of a test station and the time that it waits by.

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace gateway {

class Network {
public:
  using Time = std::chrono::milliseconds; ///< since some moment that stays the same

  /// A station sends each transfer from a port of its own. The port before stays open for what comes late.
  enum class Port { present, previous };
  struct Received {
    Port port;
    std::string bytes;
  };

  Network() = default;
  virtual ~Network() = default;
  Network(const Network&) = delete;
  Network& operator=(const Network&) = delete;

  virtual Time now() = 0;
  /// Opens a new port, and closes what was the previous one. Throws std::runtime_error.
  virtual void openPort() = 0;
  /// Sends a datagram to the unit, to its TFTP port. One that can't be sent is lost.
  virtual void send(Port port, std::string_view bytes) = 0;
  /// Waits for a datagram from the unit; nothing when none has come by `limit`.
  virtual std::optional<Received> receive(Time limit) = 0;
};

/// The network of this machine, to a unit at an IPv4 address. Throws std::runtime_error when it isn't one.
std::unique_ptr<Network> udpNetwork(const std::string& address);

} // namespace gateway
