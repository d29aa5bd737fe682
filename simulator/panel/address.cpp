#include "simulator/panel/address.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <charconv>
#include <limits>
#include <optional>
#include <stdexcept>

namespace gateway {

namespace {

constexpr std::uint32_t loopbackNetwork = 127;
constexpr int networkShift = 24;

std::optional<in_addr> fourOf(const std::string& text) {
  in_addr address{};
  return inet_pton(AF_INET, text.c_str(), &address) == 1 ? std::optional(address) : std::nullopt;
}

std::optional<in6_addr> sixOf(const std::string& text) {
  in6_addr address{};
  return inet_pton(AF_INET6, text.c_str(), &address) == 1 ? std::optional(address) : std::nullopt;
}

std::optional<int> portOf(const std::string& text) {
  std::uint16_t port = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
  return error == std::errc() && end == text.data() + text.size() ? std::optional<int>(port) : std::nullopt;
}

} // namespace

std::string PanelAddress::text() const {
  return (sixOf(address) ? "[" + address + "]" : address) + ":" + std::to_string(port);
}

PanelAddress parsePanelAddress(const std::string& text) {
  const std::size_t colon = text.rfind(':');
  std::string address = text.substr(0, colon);
  const bool hasBrackets = address.starts_with('[') && address.ends_with(']');
  if (hasBrackets)
    address = address.substr(1, address.size() - 2);
  const std::optional<int> port = colon == std::string::npos ? std::nullopt : portOf(text.substr(colon + 1));
  const bool isKnown = hasBrackets ? sixOf(address).has_value() : fourOf(address) || address == localName;
  if (!port || !isKnown)
    throw std::runtime_error("no address and port: " + text);
  return {address, *port};
}

bool isLoopback(const std::string& address) {
  if (address == localName)
    return true;
  if (const auto four = fourOf(address))
    return (ntohl(four->s_addr) >> networkShift) == loopbackNetwork;
  const auto six = sixOf(address);
  return six && IN6_IS_ADDR_LOOPBACK(&*six);
}

bool isIpAddress(const std::string& text) {
  return fourOf(text) || sixOf(text);
}

} // namespace gateway
