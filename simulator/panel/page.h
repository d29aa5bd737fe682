#pragma once
// The files of the panel's page, which the build puts into the program.

#include <span>
#include <string_view>

namespace gateway {

struct PageFile {
  std::string_view name; ///< "index.html"
  std::string_view content;
};

std::span<const PageFile> pageFiles();

} // namespace gateway
