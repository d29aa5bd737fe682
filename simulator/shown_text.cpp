#include "simulator/shown_text.h"

#include <cstdio>
#include <ctime>

namespace gateway {

std::string shown(std::string_view text) {
  std::string line;
  for (const char character : text) {
    const auto code = static_cast<unsigned char>(character);
    if (character == '\n')
      line += "\\n";
    else if (character == '\\')
      line += "\\\\";
    else if (code < ' ' || code == 0x7F) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\x%02x", code);
      line += escape;
    } else
      line += character;
  }
  return line;
}

std::string timeText(std::int64_t ms) {
  const auto seconds = static_cast<std::time_t>(ms / 1000);
  std::tm local{};
  localtime_r(&seconds, &local);
  char clock[32];
  std::strftime(clock, sizeof clock, "%F %T", &local);
  char text[48];
  std::snprintf(text, sizeof text, "%s.%03d", clock, static_cast<int>(ms % 1000));
  return text;
}

} // namespace gateway
