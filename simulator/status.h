#pragma once
// The whole unit on one screen.

#include <string>

namespace gateway {

class Unit;

/// The unit's state in about thirty lines of text.
std::string statusText(Unit& unit);

} // namespace gateway
