#pragma once
// The journal of a unit. Rows are collected and written together: at the latest after a moment by a thread of the
// journal's own, and before the unit's state is changed or the journal is read.

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "simulator/unit.h"

namespace gateway {

class Database;

class Journal {
public:
  /// `writesByItself`: whether another process may be waiting for what is recorded.
  Journal(Database& database, bool writesByItself) : m_database(database), m_writesByItself(writesByItself) {}
  /// Writes what is left.
  ~Journal();
  Journal(const Journal&) = delete;
  Journal& operator=(const Journal&) = delete;

  void record(std::string_view kind, std::string_view text);
  /// Writes a row as part of the caller's transaction.
  void insert(std::string_view kind, std::string_view text);
  /// Writes what has been recorded.
  void flush();
  std::vector<JournalRow> rows(std::int64_t afterId, std::string_view kind);

private:
  void insert(const JournalRow& row);
  void trim();
  void write();
  void writeNowAndThen();

  Database& m_database;
  const bool m_writesByItself;
  std::mutex m_mutex; ///< guards what follows; may be taken while the database is held, not the other way round
  std::condition_variable m_recorded;
  std::vector<JournalRow> m_pending;
  bool m_isEnding = false;
  std::thread m_writer;
};

} // namespace gateway
