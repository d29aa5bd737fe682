#include "simulator/panel/origin.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>

#include "simulator/panel/address.h"

namespace gateway {

namespace {

std::string lowerCase(std::string_view text) {
  std::string lower(text);
  std::ranges::transform(lower, lower.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return lower;
}

/// Whether nothing but a port stands behind the name of a host.
bool isPortOrNothing(std::string_view rest) {
  return rest.empty() || (rest.starts_with(':') && rest.find_first_not_of("0123456789", 1) == std::string_view::npos);
}

/// The name or address in a Host header, without port and brackets; empty when there is none.
std::string hostName(std::string_view host) {
  const bool hasBrackets = host.starts_with('[');
  const std::size_t start = hasBrackets ? 1 : 0;
  const std::size_t end = hasBrackets ? host.find(']') : std::min(host.find(':'), host.size());
  if (end == std::string_view::npos || !isPortOrNothing(host.substr(end + start)))
    return {};
  return lowerCase(host.substr(start, end - start));
}

std::string machineName() {
  char name[256] = "";
  gethostname(name, sizeof name - 1);
  return lowerCase(name);
}

} // namespace

bool isServedHost(std::string_view host, const std::string& address) {
  const std::string name = hostName(host);
  if (isLoopback(name))
    return true;
  return !isLoopback(address) && (isIpAddress(name) || (!name.empty() && name == machineName()));
}

bool isSameOrigin(std::string_view host, std::string_view origin, std::string_view fetchSite) {
  const bool isOwnOrigin = origin.empty() || lowerCase(origin) == "http://" + lowerCase(host);
  const bool isOwnSite = fetchSite.empty() || fetchSite == "same-origin" || fetchSite == "none";
  return isOwnOrigin && isOwnSite;
}

} // namespace gateway
