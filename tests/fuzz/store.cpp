// A configuration store that answers with whatever sizes and cells: every read of it is served or refused. The first
// bytes are the sizes of the tables in the order in which they are asked for, the rest are cells, each on a line, that
// fill them over and over.
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "platform/cfg_api.h"
#include "tests/fuzz/fresh_unit.h"
#include "tests/fuzz/fuzz.h"
#include "userapps/FTM/FTM_App.h"
#include "userapps/FTM/WrLsTask.h"

namespace {

constexpr std::size_t sizeBytes = 64;
constexpr std::uint8_t unreadable = 0x80;
constexpr std::string_view absentCell = "\x7f";

struct Store {
  explicit Store(fuzz::Input input) : sizes(input.text(sizeBytes)) {
    while (!input.isEmpty())
      cells.emplace_back(input.upTo('\n'));
  }

  std::uint8_t nextSize() { return sizes.empty() ? 0 : static_cast<std::uint8_t>(sizes[sizeIndex++ % sizes.size()]); }

  /// In memory of exactly its size.
  char* nextCell() {
    const std::string text = cells.empty() ? std::string() : cells[cellIndex++ % cells.size()];
    return text == absentCell ? nullptr : strdup(text.c_str());
  }

  std::string_view sizes;
  std::vector<std::string> cells;
  std::size_t sizeIndex = 0;
  std::size_t cellIndex = 0;
};

Store* store;

std::size_t cellCount(const ST_CFG_TABLE& table) {
  return (static_cast<std::size_t>(table.nRows) + 1) * static_cast<std::size_t>(table.nCols);
}

constexpr std::string_view written = "<TEST_CONFIG><THROUGHPUT VPI=\"0\" VCI=\"35\"/><BCOM_WIRELESS><SSID>a</SSID>"
                                     "</BCOM_WIRELESS></TEST_CONFIG>";

} // namespace

int wrap_getTable(void* session, const char* table, ST_CFG_TABLE** snapshot, const char* sourceFile,
                  const char* function, int line) asm("__wrap_cl_cfg_getTable");
int wrap_freeTable(ST_CFG_TABLE* snapshot) asm("__wrap_cfg_freeTable");

int wrap_getTable(void*, const char*, ST_CFG_TABLE** snapshot, const char*, const char*, int) {
  const std::uint8_t rows = store->nextSize();
  const std::uint8_t columns = store->nextSize();
  if ((rows & unreadable) != 0)
    return CFG_ERR_OTHER;
  auto* const table = new ST_CFG_TABLE{};
  table->nRows = rows % 8;
  table->nCols = columns % 64;
  const std::size_t count = cellCount(*table);
  table->aszCells = new char*[count];
  for (std::size_t index = 0; index < count; ++index)
    table->aszCells[index] = store->nextCell();
  *snapshot = table;
  return CFG_ERR_OK;
}

int wrap_freeTable(ST_CFG_TABLE* snapshot) {
  const std::size_t count = cellCount(*snapshot);
  for (std::size_t index = 0; index < count; ++index)
    std::free(snapshot->aszCells[index]);
  delete[] snapshot->aszCells;
  delete snapshot;
  return CFG_ERR_OK;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzz::FreshUnit fresh;
  Store answers(fuzz::Input(data, size));
  store = &answers;
  fuzz::readAll();
  fuzz::writeFile(szFTM_TestModeCfg, written);
  WrLsTaskRound();
  return 0;
}
