#pragma once
// The command of the gateway program that serves the panel.

#include <CLI/App.hpp>

namespace gateway {

/// Adds "panel" to the program. Its exit status is left in `status`.
void addPanelCommand(CLI::App& app, int& status);

} // namespace gateway
