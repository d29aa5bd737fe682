#pragma once
// Who may ask the panel. A browser has to come from the panel's own page: any other page in it could otherwise work the
// unit, directly or under a name of its own that it has pointed at this machine.

#include <string>
#include <string_view>

namespace gateway {

/// Whether a Host header names the panel that listens at an address; under which port doesn't matter, so that a
/// forwarded one does. No name is taken that a foreign name server could answer for.
bool isServedHost(std::string_view host, const std::string& address);

/// Whether a request comes from the panel's page, or from no page at all. Headers that aren't there are empty.
bool isSameOrigin(std::string_view host, std::string_view origin, std::string_view fetchSite);

} // namespace gateway
