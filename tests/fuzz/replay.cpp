// Stands in the place of libFuzzer where the compiler has none: runs a target over the inputs in files, and in the
// files of folders, that it is given. Options of libFuzzer are passed over.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "tests/fuzz/fuzz.h"

namespace {

void run(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
  std::fprintf(stderr, "%s\n", file.c_str());
  LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

std::vector<std::filesystem::path> filesOf(const std::filesystem::path& path) {
  if (!std::filesystem::is_directory(path))
    return {path};
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(path))
    files.push_back(entry.path());
  return files;
}

} // namespace

int main(int count, char* arguments[]) {
  std::size_t runs = 0;
  for (int index = 1; index < count; ++index) {
    if (std::string_view(arguments[index]).starts_with('-'))
      continue;
    for (const std::filesystem::path& file : filesOf(arguments[index])) {
      run(file);
      ++runs;
    }
  }
  return runs == 0 ? EXIT_FAILURE : EXIT_SUCCESS;
}
