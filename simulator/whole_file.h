#pragma once
// Files that are read and written as a whole.

#include <filesystem>
#include <string>
#include <string_view>

namespace gateway {

/// The bytes of a file. Throws std::runtime_error when it can't be read, and for more than 128 MiB: what never ends,
/// such as /dev/zero, must not fill the memory.
std::string readWholeFile(const std::filesystem::path& file);

/// Throws std::runtime_error when the file can't be written.
void writeWholeFile(const std::filesystem::path& file, std::string_view bytes);

} // namespace gateway
