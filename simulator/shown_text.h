#pragma once
// How the gateway program prints texts and times.

#include <cstdint>
#include <string>
#include <string_view>

namespace gateway {

/// A text on one line: control characters and backslashes as escapes.
std::string shown(std::string_view text);

/// A time of the wall clock, in milliseconds since 1970, as local time.
std::string timeText(std::int64_t ms);

} // namespace gateway
