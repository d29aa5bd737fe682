#include "simulator/whole_file.h"

#include <array>
#include <fstream>
#include <stdexcept>

namespace gateway {

namespace {

constexpr std::size_t mostBytes = std::size_t{128} << 20;

} // namespace

std::string readWholeFile(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  if (!stream.is_open() || std::filesystem::is_directory(file))
    throw std::runtime_error(file.string() + " can't be read");
  std::string bytes;
  std::array<char, 65536> part;
  do {
    stream.read(part.data(), part.size());
    bytes.append(part.data(), static_cast<std::size_t>(stream.gcount()));
    if (bytes.size() > mostBytes)
      throw std::runtime_error(file.string() + " is too long");
  } while (stream);
  return bytes;
}

void writeWholeFile(const std::filesystem::path& file, std::string_view bytes) {
  std::ofstream stream(file, std::ios::binary);
  stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  stream.close();
  if (!stream)
    throw std::runtime_error(file.string() + " can't be written");
}

} // namespace gateway
