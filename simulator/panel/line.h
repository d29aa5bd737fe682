#pragma once
// The production line that a unit may belong to.

#include <filesystem>

#include "simulator/panel/json.h"

namespace gateway {

/// The units of the line that the unit in a folder belongs to; an empty list when it belongs to none.
Json lineOf(const std::filesystem::path& unit);

} // namespace gateway
