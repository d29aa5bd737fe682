#pragma once
// The commands of the gateway program that play and record scenarios.

#include <CLI/App.hpp>

namespace gateway {

/// Adds the commands to the program. `status` is set to its exit status when a scenario fails.
void addScenarioCommands(CLI::App& app, int& status);

} // namespace gateway
