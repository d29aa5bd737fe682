#pragma once
// The tables of the configuration store: what there is, who may write it, and its cells.

#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/cfg_api.h"
#include "simulator/database.h"

namespace gateway {

/// What a reset to the factory configuration does to a table.
enum class Reset { keeps, restores };

struct StoreTable {
  const char* name;
  Reset reset;
  unsigned writers;                             ///< bits of the ENUM_CFG_ROLE roles that may write it
  void (*settle)(Database& database) = nullptr; ///< brings the table up to date before it is read; null: it always is
};

std::span<const StoreTable> storeTables();
/// Null when there is no such table.
const StoreTable* findTable(std::string_view name);

class Tables {
public:
  explicit Tables(Database& database) : m_database(database) {}

  /// Keeps the tables' contents as the factory configuration; done once, when a unit is made.
  void keepAsFactory();
  /// Puts the factory configuration back. To be called in a transaction.
  void restoreFactory();

  /// Names of the columns in the order of their positions.
  const std::vector<std::string>& columns(const StoreTable& table);
  /// Position of a column, or -1.
  int findColumn(const StoreTable& table, std::string_view name);
  int rows(const StoreTable& table);
  std::optional<std::string> cell(const StoreTable& table, int row, int column);
  /// Returns whether there is such a row.
  bool setCell(const StoreTable& table, int row, int column, std::string_view value);
  /// Sets a cell of row 0 and makes it part of the factory configuration, adding the row where it is missing.
  void setFactoryCell(const StoreTable& table, int column, std::string_view value);
  void addRow(const StoreTable& table);
  void clear(const StoreTable& table);

  /// A new snapshot, to be released with std::free().
  ST_CFG_TABLE* snapshot(const StoreTable& table);

private:
  /// Contents of a table, all cells one behind the other and each ended by a NUL, headers first.
  struct Contents {
    Database::Version version;
    int rows = 0;
    int columns = 0;
    std::string text;
    std::vector<std::size_t> cells; ///< where each cell starts in the text
  };
  const Contents& contents(const StoreTable& table);
  void read(const StoreTable& table, Contents& contents);

  Database& m_database;
  std::map<const StoreTable*, std::vector<std::string>> m_columns;
  std::map<const StoreTable*, Contents> m_contents;
};

/// A journal row's text for a written cell.
std::string writeText(std::string_view table, int row, std::string_view column, std::string_view value);

} // namespace gateway
