#pragma once
// The calls by which the panel is asked about its unit, apart from how they come over the network.

#include <map>
#include <optional>
#include <string>

#include "simulator/panel/json.h"
#include "simulator/panel/source.h"

namespace gateway {

struct Reply {
  int status; ///< of HTTP
  Json json;
};

/// What stands behind the "?" of an address, decoded.
using Arguments = std::multimap<std::string, std::string>;

/// Answers the GET of a path ("/api/state"); nothing when there is no such call. Throws std::invalid_argument for
/// arguments that can't be, NoUnit when there is no unit to be asked. Any thread.
std::optional<Reply> answerCall(UnitSource& source, const std::string& path, const Arguments& arguments);

/// The reply to a call that is refused.
Reply refusal(int status, std::string_view why);

} // namespace gateway
