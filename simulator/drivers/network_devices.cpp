// The kernel's table of network devices, from the store's.
#include <array>

#include "simulator/database.h"
#include "simulator/drivers/driver.h"
#include "simulator/drivers/ethernet.h"
#include "simulator/unit.h"

namespace gateway {

namespace {

constexpr const char* header = "Inter-|   Receive                                                |  Transmit\n"
                               " face |bytes    packets errs drop fifo frame compressed multicast|bytes    packets "
                               "errs drop fifo colls carrier compressed\n";
constexpr std::array widths{7, 7, 4, 4, 4, 5, 10, 9, 8, 7, 4, 4, 4, 5, 7, 10};
constexpr int nameWidth = 6;

std::size_t index(int column) {
  return static_cast<std::size_t>(column) - 1;
}

std::string rightAligned(std::string_view text, int width) {
  const auto size = static_cast<std::size_t>(width);
  return std::string(text.size() < size ? size - text.size() : 0, ' ').append(text);
}

} // namespace

std::string networkDeviceText(Unit& unit) {
  moveTraffic(unit.database());
  std::string text = header;
  Query rows(unit.database(), "SELECT * FROM \"NetDev\" ORDER BY rowid");
  while (rows.next()) {
    text.append(rightAligned(rows.text(0), nameWidth)).append(":");
    for (int column = 1; column < rows.columns(); ++column)
      text.append(column == 1 ? "" : " ").append(rightAligned(rows.text(column), widths.at(index(column))));
    text += '\n';
  }
  return text;
}

} // namespace gateway
