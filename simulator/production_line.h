#pragma once
// A production line: several units that run at once, each with an address and a folder of its own.

#include <filesystem>
#include <string>
#include <vector>

namespace gateway {

struct LineOptions {
  std::filesystem::path folder;  ///< of the line, which holds those of the units
  std::filesystem::path service; ///< the service's program
  int units = 0;
  int from = 1; ///< number of the first unit
};

/// A unit of a line.
struct LineUnit {
  std::string name;    ///< "unit1"
  std::string address; ///< empty while the line doesn't run
  std::filesystem::path folder;
  std::string phase; ///< "up", "booting", "dark" between two boots, or "off"
  std::string serial;
};

/// Runs the line until SIGINT, SIGTERM or SIGHUP comes; then ends all units and returns 0. Returns 1 when a unit can't
/// be started or its supervisor ends by itself. Throws std::runtime_error when the line runs already, or its network
/// can't be made, which needs root.
int runLine(const LineOptions& options);

/// The units of the line in a folder, by their numbers; none when there is no line.
std::vector<LineUnit> lineUnits(const std::filesystem::path& folder);

} // namespace gateway
