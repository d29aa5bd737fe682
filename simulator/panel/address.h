#pragma once
// Where the panel is served.

#include <string>

namespace gateway {

struct PanelAddress {
  std::string address; ///< an IP address, or "localhost"
  int port;            ///< 0: any that is free

  /// "127.0.0.1:8069", "[::1]:8069"
  std::string text() const;
};

constexpr const char* panelAddressDefault = "127.0.0.1:8069";

/// Reads what text() writes. Throws std::runtime_error when the text is no address and port.
PanelAddress parsePanelAddress(const std::string& text);

/// Whether only this machine reaches what listens at an address.
bool isLoopback(const std::string& address);
/// Whether a text is an IP address.
bool isIpAddress(const std::string& text);

constexpr const char* localName = "localhost";

} // namespace gateway
