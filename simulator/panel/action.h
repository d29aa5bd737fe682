#pragma once
// What the panel does to its unit.

#include <filesystem>
#include <string>

#include "simulator/panel/calls.h"

namespace gateway {

/// Does the action that the body of a request holds, {"words": ["press", "reset"]}, as the command of these words does.
/// Any thread.
Reply doAction(const std::filesystem::path& unit, const std::string& body);

} // namespace gateway
