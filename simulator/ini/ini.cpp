// The INI library: applies a production configuration to the store. A section is a table, a key is a column of it,
// and the cell is that of row 0. The section "control" asks for what follows.
#include <ini.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "platform/cfg_api.h"
#include "simulator/faults.h"
#include "simulator/journal.h"
#include "simulator/store/session.h"
#include "simulator/unit.h"

using namespace gateway;

namespace {

constexpr std::string_view controlSection = "control";
constexpr std::string_view blanks = " \t\v\f\r";

/// What a text asks for.
struct Settings {
  std::vector<StagedCell> cells;
  int reboot = -1; ///< 0 or 1, -1 when the text doesn't say
  int reset = -1;
};

/// The text on its way through the parser.
struct Source {
  std::string_view rest;
  bool hasLongLine = false;
};

/// Gives the parser the next line, as fgets(3) does. A line comes without its indent, which would make it go on with
/// the value of the line before.
char* nextLine(char* buffer, int size, void* stream) {
  Source& source = *static_cast<Source*>(stream);
  if (source.rest.empty())
    return nullptr;
  const std::size_t end = std::min(source.rest.find('\n'), source.rest.size());
  std::string_view line = source.rest.substr(0, end);
  source.rest.remove_prefix(std::min(end + 1, source.rest.size()));
  line.remove_prefix(std::min(line.find_first_not_of(blanks), line.size()));
  if (line.size() + 2 > static_cast<std::size_t>(size)) {
    source.hasLongLine = true;
    return nullptr;
  }
  line.copy(buffer, line.size());
  buffer[line.size()] = '\n';
  buffer[line.size() + 1] = '\0';
  return buffer;
}

bool setFlag(int& flag, std::string_view value) {
  if (value != "0" && value != "1")
    return false;
  flag = value == "1" ? 1 : 0;
  return true;
}

bool takeControl(Settings& settings, std::string_view key, std::string_view value) {
  if (key == "reboot")
    return setFlag(settings.reboot, value);
  if (key == "reset")
    return setFlag(settings.reset, value);
  return false;
}

bool takeCell(Settings& settings, std::string_view section, std::string_view key, std::string_view value) {
  const StoreTable* const table = findTable(section);
  const int column = table != nullptr ? theUnit().tables().findColumn(*table, key) : -1;
  if (column < 0)
    return false;
  settings.cells.push_back({table, 0, column, std::string(value)});
  return true;
}

int takeLine(void* user, const char* section, const char* key, const char* value) {
  Settings& settings = *static_cast<Settings*>(user);
  const bool taken = section == controlSection ? takeControl(settings, key, value != nullptr ? value : "")
                                               : takeCell(settings, section, key, value != nullptr ? value : "");
  return taken ? 1 : 0;
}

bool parse(std::string_view text, Settings& settings) {
  if (text.find('\0') != std::string_view::npos)
    return false;
  Source source{text};
  return ini_parse_stream(nextLine, &source, takeLine, &settings) == 0 && !source.hasLongLine;
}

void apply(const std::vector<StagedCell>& cells) {
  Unit& unit = theUnit();
  unit.journalBook().flush();
  Transaction transaction(unit.database());
  for (const StagedCell& cell : cells) {
    unit.tables().setFactoryCell(*cell.table, cell.column, cell.value);
    const std::string& column = unit.tables().columns(*cell.table)[static_cast<std::size_t>(cell.column)];
    unit.journalBook().insert("write", writeText(cell.table->name, 0, column, cell.value));
  }
  transaction.commit();
}

void takeFlag(int value, int& flag) {
  if (value >= 0)
    flag = value;
}

} // namespace

int ParseIniFile(stMgmtUtilClientInfo* client, int* rebootFlag, int* resetFlag, int) {
  if (client == nullptr || client->pcData == nullptr || rebootFlag == nullptr || resetFlag == nullptr)
    return CFG_ERR_PARMS;
  return guarded([&] {
    Settings settings;
    if (theUnit().faults().has("ini") || !parse({client->pcData, client->uiImageLength}, settings))
      return CFG_ERR_CMD;
    apply(settings.cells);
    takeFlag(settings.reboot, *rebootFlag);
    takeFlag(settings.reset, *resetFlag);
    return CFG_ERR_OK;
  });
}
