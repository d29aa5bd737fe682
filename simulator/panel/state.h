#pragma once
// The state of a unit as the panel shows it. The keys stand in docs/panel.md.

#include <cstdint>
#include <string>
#include <vector>

#include "simulator/panel/json.h"

namespace gateway {

class Life;
class Unit;

/// Everything about the unit but what other processes know of it.
struct Surroundings {
  bool isSupervised = false;
  std::vector<std::string> activeTests{};
  bool operator==(const Surroundings&) const = default;
};

/// The sections of the state, by their keys. `life` has followed the unit's journal. Throws DatabaseError.
Json stateOf(Unit& unit, const Life& life, const Surroundings& surroundings);

/// What is left of it when the unit can't be read.
Json stateOfNothing(const std::string& folder);

/// The sections of `now` that differ from those of `before`; empty when none does.
Json changedSections(const Json& before, const Json& now);

} // namespace gateway
