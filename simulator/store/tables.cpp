#include "simulator/store/tables.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

#include "simulator/drivers/ethernet.h"
#include "simulator/drivers/line.h"

namespace gateway {

namespace {

constexpr unsigned role(ENUM_CFG_ROLE value) {
  return 1U << value;
}

constexpr unsigned factoryRoles =
    role(CFG_ROLE_FACTORY) | role(CFG_ROLE_FACTORY_UPDATE) | role(CFG_ROLE_FACTORY_TR069_UPDATE);
constexpr unsigned userRoles = factoryRoles | role(CFG_ROLE_WEB_GUI) | role(CFG_ROLE_CMDLINE);
constexpr unsigned noRole = 0;

constexpr StoreTable tables[] = {
    // who the unit is
    {"ProductionData", Reset::keeps, factoryRoles},
    // configuration
    {"AppSwInfo", Reset::restores, factoryRoles},
    {"ProductType", Reset::restores, factoryRoles},
    {"ProductInfo", Reset::restores, factoryRoles},
    {"ProductInterfaces", Reset::restores, factoryRoles},
    {"XcvrTable", Reset::restores, userRoles},
    {"LedTable", Reset::restores, userRoles},
    {"WlanConfig", Reset::restores, userRoles},
    // what the board reports
    {"Xcvr", Reset::keeps, noRole, settleLine},
    {"NetDev", Reset::keeps, noRole, moveTraffic},
    {"BcmAtm", Reset::keeps, noRole, moveTraffic},
    {"VccStat", Reset::keeps, noRole},
    {"FlashErr", Reset::keeps, noRole},
    {"SwitchStat", Reset::keeps, noRole, moveTraffic},
    {"WlanStations", Reset::keeps, noRole},
};

// Names in the statements are those of the tables above and of their columns in schema.sql, never a caller's text.
std::string identifier(std::string_view name) {
  std::string text = "\"";
  for (const char character : name)
    text += character == '"' ? std::string("\"\"") : std::string(1, character);
  return text + '"';
}

std::string liveName(const StoreTable& table) {
  return identifier(table.name);
}

std::string factoryName(const StoreTable& table) {
  return identifier(std::string("factory ") + table.name);
}

std::string updateSql(const std::string& tableName, const std::string& column) {
  return "UPDATE " + tableName + " SET " + identifier(column) + " = ? WHERE rowid = (SELECT rowid FROM " + tableName +
         " ORDER BY rowid LIMIT 1 OFFSET ?)";
}

template <class Action>
void forEachRestored(Action action) {
  for (const StoreTable& table : tables)
    if (table.reset == Reset::restores)
      action(table);
}

} // namespace

std::span<const StoreTable> storeTables() {
  return tables;
}

const StoreTable* findTable(std::string_view name) {
  const auto* const found = std::ranges::find(tables, name, [](const StoreTable& table) { return table.name; });
  return found == std::end(tables) ? nullptr : found;
}

std::string writeText(std::string_view table, int row, std::string_view column, std::string_view value) {
  std::string text(table);
  text.append(" ").append(std::to_string(row)).append(" ").append(column).append("=").append(value);
  return text;
}

void Tables::keepAsFactory() {
  forEachRestored([&](const StoreTable& table) {
    const std::string copy = "CREATE TABLE " + factoryName(table) + " AS SELECT * FROM " + liveName(table);
    m_database.runScript((copy + " ORDER BY rowid").c_str());
  });
}

void Tables::restoreFactory() {
  forEachRestored([&](const StoreTable& table) {
    execute(m_database, "DELETE FROM " + liveName(table));
    execute(m_database, "INSERT INTO " + liveName(table) + " SELECT * FROM " + factoryName(table) + " ORDER BY rowid");
  });
}

const std::vector<std::string>& Tables::columns(const StoreTable& table) {
  const auto lock = m_database.lock();
  std::vector<std::string>& names = m_columns[&table];
  if (names.empty()) {
    Query query(m_database, "SELECT name FROM pragma_table_info(?) ORDER BY cid", table.name);
    while (query.next())
      names.emplace_back(query.text(0));
  }
  return names;
}

int Tables::findColumn(const StoreTable& table, std::string_view name) {
  const std::vector<std::string>& names = columns(table);
  const auto found = std::ranges::find(names, name);
  return found == names.end() ? -1 : static_cast<int>(found - names.begin());
}

int Tables::rows(const StoreTable& table) {
  const auto lock = m_database.lock();
  return contents(table).rows;
}

std::optional<std::string> Tables::cell(const StoreTable& table, int row, int column) {
  const auto lock = m_database.lock();
  const Contents& found = contents(table);
  if (row < 0 || row >= found.rows || column < 0 || column >= found.columns)
    return std::nullopt;
  const auto index = static_cast<std::size_t>(row + 1) * static_cast<std::size_t>(found.columns);
  return found.text.c_str() + found.cells[index + static_cast<std::size_t>(column)];
}

bool Tables::setCell(const StoreTable& table, int row, int column, std::string_view value) {
  const std::string& name = columns(table).at(static_cast<std::size_t>(column));
  return execute(m_database, updateSql(liveName(table), name), value, row) == 1;
}

void Tables::setFactoryCell(const StoreTable& table, int column, std::string_view value) {
  if (rows(table) == 0)
    addRow(table);
  setCell(table, 0, column, value);
  if (table.reset == Reset::keeps)
    return;
  const std::string& name = columns(table).at(static_cast<std::size_t>(column));
  const std::string update = updateSql(factoryName(table), name);
  if (execute(m_database, update, value, 0) == 1)
    return;
  execute(m_database, "INSERT INTO " + factoryName(table) + " SELECT * FROM " + liveName(table) + " LIMIT 1");
}

void Tables::addRow(const StoreTable& table) {
  execute(m_database, "INSERT INTO " + liveName(table) + " DEFAULT VALUES");
}

void Tables::clear(const StoreTable& table) {
  execute(m_database, "DELETE FROM " + liveName(table));
}

const Tables::Contents& Tables::contents(const StoreTable& table) {
  if (table.settle != nullptr)
    table.settle(m_database);
  Contents& found = m_contents[&table];
  const Database::Version version = m_database.version();
  if (found.version != version) {
    found.version = {}; // until it has been read to the end
    read(table, found);
    found.version = version;
  }
  return found;
}

void Tables::read(const StoreTable& table, Contents& contents) {
  contents.text.clear();
  contents.cells.clear();
  const auto append = [&](std::string_view cell) {
    contents.cells.push_back(contents.text.size());
    contents.text.append(cell.substr(0, cell.find('\0'))).push_back('\0');
  };
  for (const std::string& name : columns(table))
    append(name);
  contents.columns = static_cast<int>(contents.cells.size());
  contents.rows = 0;
  Query query(m_database, "SELECT * FROM " + liveName(table) + " ORDER BY rowid");
  for (; query.next(); ++contents.rows)
    for (int column = 0; column < contents.columns; ++column)
      append(query.text(column));
}

ST_CFG_TABLE* Tables::snapshot(const StoreTable& table) {
  const auto lock = m_database.lock();
  const Contents& found = contents(table);
  const std::size_t cells = found.cells.size();
  auto* const block = static_cast<char*>(std::malloc(sizeof(ST_CFG_TABLE) + cells * sizeof(char*) + found.text.size()));
  if (block == nullptr)
    throw std::bad_alloc();
  auto** const pointers = reinterpret_cast<char**>(block + sizeof(ST_CFG_TABLE));
  char* const text = block + sizeof(ST_CFG_TABLE) + cells * sizeof(char*);
  std::memcpy(text, found.text.data(), found.text.size());
  for (std::size_t index = 0; index < cells; ++index)
    pointers[index] = text + found.cells[index];
  return new (block) ST_CFG_TABLE{.pvData = text,
                                  .pvFill = text + found.text.size(),
                                  .nBufSize = found.text.size(),
                                  .nRows = found.rows,
                                  .nCols = found.columns,
                                  .aszCells = pointers,
                                  .szDbgStr1 = {},
                                  .szDbgStr2 = {},
                                  .iDbgLine = 0,
                                  .next = nullptr,
                                  .prev = nullptr};
}

} // namespace gateway
