#pragma once
// A connection to a unit's SQLite file. One connection serves all threads of a process: whoever holds a Query or a
// Transaction holds it. Failures of the database throw DatabaseError.

#include <sqlite3.h>

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace gateway {

class DatabaseError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

class Database {
public:
  static std::unique_ptr<Database> inMemory();
  /// A database in memory with what an image() holds.
  static std::unique_ptr<Database> fromImage(std::string_view image);
  /// Opens or creates the file. Throws DatabaseError.
  static std::unique_ptr<Database> open(const std::filesystem::path& file);
  ~Database();
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  /// Holds the connection for a scope, so that what is read in it belongs together.
  std::unique_lock<std::recursive_mutex> lock() { return std::unique_lock(m_mutex); }

  /// Makes another database the same as this one, at once and as a whole.
  void copyTo(Database& other);
  /// All bytes of a database in memory.
  std::string image();

  /// Runs a text of several statements.
  void runScript(const char* sql);

  /// What was read from the database is still so as long as this compares equal.
  struct Version {
    std::uint64_t commits = 0; ///< changes with each commit of any connection
    std::int64_t own = -1;     ///< changes with each change by this one, also before it is committed
    bool operator==(const Version&) const = default;
  };
  Version version();

  /// The values of the first row that a query gives, as texts; none when it gives no row. Remembered for as long as
  /// they are so, for what is read time and again.
  std::vector<std::string> firstRow(std::string_view sql);

  /// Makes version() differ from what it was; returns the number of rows that the last statement changed.
  std::int64_t stateChanged();

private:
  friend class Query;
  friend class Transaction;
  struct Row {
    Version version;
    std::vector<std::string> values;
  };
  explicit Database(const std::string& name);
  [[noreturn]] void fail(std::string_view what) const;
  sqlite3_stmt* take(std::string_view sql);
  void findSharedIndex();
  void giveBack(std::string_view sql, sqlite3_stmt* statement);

  sqlite3* m_connection = nullptr;
  std::recursive_mutex m_mutex;
  std::map<std::string, sqlite3_stmt*, std::less<>> m_statements; ///< prepared, and not in use
  std::map<std::string, Row, std::less<>> m_rows;                 ///< remembered by firstRow()
  std::int64_t m_ownChanges = 0;
  const volatile void* m_sharedIndex = nullptr; ///< SQLite's index of the write-ahead log, shared by all processes
};

/// A running statement. Its arguments are integers and texts, for the places marked "?" in their order.
class Query {
public:
  template <class... Arguments>
  Query(Database& database, std::string_view sql, const Arguments&... arguments)
      : m_lock(database.m_mutex), m_database(database), m_sql(sql), m_statement(database.take(sql)) {
    (bind(arguments), ...);
  }
  ~Query() { m_database.giveBack(m_sql, m_statement); }
  Query(const Query&) = delete;
  Query& operator=(const Query&) = delete;

  /// Steps to the next row; false when there is none.
  bool next();

  // Values of the present row.

  int columns() const { return sqlite3_column_count(m_statement); }
  std::string_view text(int column) const;
  std::int64_t number(int column) const { return sqlite3_column_int64(m_statement, column); }

private:
  void bind(std::int64_t value);
  void bind(std::string_view value);

  std::unique_lock<std::recursive_mutex> m_lock;
  Database& m_database;
  std::string m_sql;
  sqlite3_stmt* m_statement;
  int m_bound = 0;
};

/// Runs a statement that changes the unit's state; returns the number of rows that it changed.
template <class... Arguments>
std::int64_t execute(Database& database, std::string_view sql, const Arguments&... arguments) {
  Query query(database, sql, arguments...);
  while (query.next()) {
  }
  return database.stateChanged();
}

/// A write transaction: from here to commit() everything or nothing. Inside another one it is part of that.
class Transaction {
public:
  explicit Transaction(Database& database);
  /// Undoes everything unless it was committed.
  ~Transaction();
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;

  void commit();

private:
  std::unique_lock<std::recursive_mutex> m_lock;
  Database& m_database;
  bool m_isOpen;
};

} // namespace gateway
