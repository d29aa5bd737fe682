#pragma once
// The commands of the gateway program that show what goes over a unit's wire, and what its service prints.

#include <CLI/App.hpp>

namespace gateway {

/// Adds the commands to the program. They work on the unit whose folder --unit or the environment names.
void addWireCommands(CLI::App& app);

} // namespace gateway
