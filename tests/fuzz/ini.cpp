// An INI text: taken as a whole, which is each cell that it names and nothing else, or refused with nothing changed.
#include "simulator/database.h"
#include "simulator/store/tables.h"
#include "tests/fuzz/fresh_unit.h"
#include "tests/fuzz/fuzz.h"
#include "userapps/FTM/FTM_App.h"

namespace {

constexpr std::string_view spaces = " \t\n\v\f\r";
constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view controlSection = "control";

std::string_view trimmed(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(spaces), text.size()));
  return text.substr(0, text.find_last_not_of(spaces) + 1);
}

/// The text up to a ";" behind a space.
std::string_view withoutComment(std::string_view text) {
  for (std::size_t end = text.find(';'); end != std::string_view::npos; end = text.find(';', end + 1))
    if (end > 0 && spaces.find(text[end - 1]) != std::string_view::npos)
      return text.substr(0, end);
  return text;
}

void setCell(fuzz::StoreCells& cells, std::string_view section, std::string_view key, std::string_view value) {
  const gateway::StoreTable* const table = gateway::findTable(section);
  fuzz::require(table != nullptr, "a taken text names tables that are there");
  const int column = fuzz::FreshUnit::unit().tables().findColumn(*table, key);
  fuzz::require(column >= 0, "a taken text names columns that are there");
  cells[{table->name, 0, column}] = value;
}

/// The cells once a text that is well-formed has been applied to them, read by its notation and without the library.
fuzz::StoreCells cellsAfter(fuzz::Input text, fuzz::StoreCells cells) {
  std::string_view section;
  for (bool isFirst = true; !text.isEmpty(); isFirst = false) {
    std::string_view line = trimmed(text.upTo('\n'));
    if (isFirst && line.starts_with(byteOrderMark))
      line = trimmed(line.substr(byteOrderMark.size()));
    if (line.empty() || line.starts_with(';') || line.starts_with('#'))
      continue;
    const std::size_t end = line.find_first_of(line.starts_with('[') ? "]" : "=:");
    fuzz::require(end != std::string_view::npos, "a taken text has sections and cells only");
    if (line.starts_with('['))
      section = line.substr(1, end - 1);
    else if (section != controlSection)
      setCell(cells, section, trimmed(line.substr(0, end)), trimmed(withoutComment(line.substr(end + 1))));
  }
  return cells;
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzz::FreshUnit fresh;
  const auto version = fuzz::FreshUnit::unit().database().version();
  const fuzz::StoreCells before = fuzz::storeCells();
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const std::string refusal = fuzz::writeFile("unit.ini", text);
  if (refusal.empty())
    fuzz::require(fuzz::storeCells() == cellsAfter(fuzz::Input(data, std::min(text.find('\0'), size)), before),
                  "a taken text sets each cell that it names, and no other");
  else
    fuzz::require(fuzz::FreshUnit::unit().database().version() == version, "a refused text changes nothing");
  fuzz::require(DwLoadStatus() == 0 && IsFileFromFtm() == 0, "no file is on its way any more");
  fuzz::require(!fuzz::readFile(szFTM_ModemInfo).empty(), "the unit still tells who it is");
  return 0;
}
