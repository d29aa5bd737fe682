#pragma once
// The commands of the gateway program that run a production line.

#include <CLI/App.hpp>

#include <string>

namespace gateway {

/// Adds them to the program's command "line", which acts on a unit's DSL line already. `service` is the service's
/// program; `status` gets the program's exit status.
void addLineCommands(CLI::App& app, const std::string& service, int& status);

} // namespace gateway
