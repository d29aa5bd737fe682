#include "simulator/panel/line.h"

#include <algorithm>
#include <vector>

#include "simulator/production_line.h"

namespace gateway {

Json lineOf(const std::filesystem::path& unit) {
  const std::filesystem::path folder = std::filesystem::absolute(unit).lexically_normal();
  const std::vector<LineUnit> units = lineUnits(folder.parent_path());
  Json list = Json::array();
  if (std::ranges::find(units, folder, &LineUnit::folder) == units.end())
    return list;
  for (const LineUnit& other : units)
    list.push_back({{"name", utf8Of(other.name)},
                    {"address", utf8Of(other.address)},
                    {"folder", utf8Of(other.folder.string())},
                    {"panel", ""}, // a line serves none by itself
                    {"phase", utf8Of(other.phase)}});
  return list;
}

} // namespace gateway
