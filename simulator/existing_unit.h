#pragma once
// How the commands of the gateway program find their unit.

#include <CLI/App.hpp>

#include <memory>
#include <stdexcept>
#include <string>

#include "simulator/unit.h"

namespace gateway {

/// The option that names a unit's folder.
inline CLI::Option* addUnitOption(CLI::App& command, std::string& folder) {
  return command.add_option("--unit", folder, "Folder of the unit")->envname(unitVariable)->required();
}

/// The folder of a unit. Throws std::runtime_error when there is no unit in it.
inline const std::string& existingFolder(const std::string& folder) {
  if (!Unit::exists(folder))
    throw std::runtime_error("there is no unit in " + folder);
  return folder;
}

/// Throws std::runtime_error when there is no unit in the folder.
inline std::unique_ptr<Unit> existingUnit(const std::string& folder) {
  return Unit::open(existingFolder(folder));
}

} // namespace gateway
