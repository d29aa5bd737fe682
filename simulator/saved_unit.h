#pragma once
// A whole unit in one file: its database and the gateway's own file system.

#include <filesystem>

namespace gateway {

class Unit;

/// Keeps the unit as it is now, running or not, in `file`, which is replaced as a whole. Works from any thread. Throws
/// std::runtime_error, with the file as it was, when it can't be written.
void saveUnit(Unit& unit, const std::filesystem::path& file);

/// Makes the unit in `folder` what a file of saveUnit() holds; there need not be one before. Throws std::runtime_error,
/// with nothing changed, while a supervisor runs the unit and for a file that is none of a unit, is damaged or was made
/// by another version.
void loadUnit(const std::filesystem::path& folder, const std::filesystem::path& file);

} // namespace gateway
