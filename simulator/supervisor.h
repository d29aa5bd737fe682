#pragma once
// The supervisor of a simulated unit: runs the service and starts it again after a reboot of the unit.

#include <filesystem>
#include <string>

namespace gateway {

struct SupervisorOptions {
  std::filesystem::path unit;    ///< folder of the unit
  std::filesystem::path service; ///< the service's program
  bool isFresh = false;          ///< whether the unit is put back to factory state first
  std::string panel{};           ///< where its panel is served, as parsePanelAddress() reads it; empty: nowhere
};

/// Runs the unit until SIGINT, SIGTERM or SIGHUP comes; then ends the service and returns 0. Returns 1 when the unit
/// runs already or the service ends before it has been ready. Throws std::runtime_error when the unit can't be opened.
int supervise(const SupervisorOptions& options);

} // namespace gateway
