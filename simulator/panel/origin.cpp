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

/// The name or address in a Host header, without port and brackets; empty when there is none.
std::string hostName(std::string_view host) {
  if (!host.starts_with('['))
    return lowerCase(host.substr(0, host.find(':')));
  const std::size_t end = host.find(']');
  return end == std::string_view::npos ? std::string() : std::string(host.substr(1, end - 1));
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
