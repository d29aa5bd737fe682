#pragma once
// The panel: a server for the page that shows a unit and works it. The calls stand in docs/panel.md.

#include <filesystem>

#include "simulator/panel/address.h"

namespace gateway {

/// Serves the panel of the unit in a folder until the process ends. Returns EXIT_FAILURE, having said why, when the
/// address can't be used.
int servePanel(const std::filesystem::path& unit, const PanelAddress& address);

} // namespace gateway
