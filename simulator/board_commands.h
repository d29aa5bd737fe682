#pragma once
// The commands of the gateway program that show the board and act on it.

#include <CLI/App.hpp>

namespace gateway {

/// Adds the commands to the program. They work on the unit whose folder --unit or the environment names.
void addBoardCommands(CLI::App& app);

} // namespace gateway
