#pragma once
// Owners of everything that the service opens: they close it on every path.

#include <fcntl.h>
#include <pthread.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "platform/board.h"
#include "platform/cfg_api.h"

/// Holds a mutex for a scope.
class MutexLock {
public:
  explicit MutexLock(pthread_mutex_t& mutex) : m_mutex(mutex) { pthread_mutex_lock(&m_mutex); }
  ~MutexLock() { pthread_mutex_unlock(&m_mutex); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

private:
  pthread_mutex_t& m_mutex;
};

/// Memory of malloc(3) and its kin, for a std::unique_ptr.
struct HeapFree {
  void operator()(void* memory) const { std::free(memory); }
};

/// A descriptor of a device or control socket, -1 when it could not be opened.
class Descriptor {
public:
  explicit Descriptor(int descriptor) : m_descriptor(descriptor) {}
  ~Descriptor() {
    if (isOpen())
      board_close(m_descriptor);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  bool isOpen() const { return m_descriptor >= 0; }
  int get() const { return m_descriptor; }

private:
  int m_descriptor;
};

/// Opens a device read-write.
inline Descriptor openDevice(const char* path) {
  return Descriptor(board_open(path, O_RDWR));
}

/// A stream of board_fopen(), null when it could not be opened.
struct StreamCloser {
  void operator()(std::FILE* stream) const { std::fclose(stream); }
};
using TextStream = std::unique_ptr<std::FILE, StreamCloser>;

/// A session of the configuration store.
class StoreSession {
public:
  StoreSession(int role, const char* name) : m_session(cfg_startSession(role, name)) {}
  ~StoreSession() {
    if (m_session != nullptr)
      cfg_endSession(m_session);
  }
  StoreSession(const StoreSession&) = delete;
  StoreSession& operator=(const StoreSession&) = delete;

  bool isOpen() const { return m_session != nullptr; }
  void* get() const { return m_session; }

private:
  void* m_session;
};

/// A snapshot of one table. The last three arguments name the caller to the store.
class TableSnapshot {
public:
  TableSnapshot(void* session, const char* table, const char* sourceFile = __builtin_FILE(),
                const char* function = __builtin_FUNCTION(), int line = __builtin_LINE()) {
    m_result = cl_cfg_getTable(session, table, &m_table, sourceFile, function, line);
    if (m_result != CFG_ERR_OK)
      m_table = nullptr;
  }
  ~TableSnapshot() {
    if (m_table != nullptr)
      cfg_freeTable(m_table);
  }
  TableSnapshot(const TableSnapshot&) = delete;
  TableSnapshot& operator=(const TableSnapshot&) = delete;

  bool isRead() const { return m_table != nullptr; }
  /// The store's result of the reading.
  int result() const { return m_result; }
  ST_CFG_TABLE* get() const { return m_table; }
  /// Number of data rows; 0 when the table was not read.
  int rows() const { return isRead() ? m_table->nRows : 0; }

  /// Text of a data row's cell, both counted from 0; null when the table has no such cell or was not read.
  const char* cell(int row, int column) const { return isRead() ? tableCell(*m_table, row, column) : nullptr; }

  static const char* tableCell(const ST_CFG_TABLE& table, int row, int column) {
    if (row < 0 || row >= table.nRows || column < 0 || column >= table.nCols)
      return nullptr;
    const auto index = (static_cast<std::size_t>(row) + 1) * static_cast<std::size_t>(table.nCols);
    return table.aszCells[index + static_cast<std::size_t>(column)];
  }

private:
  int m_result;
  ST_CFG_TABLE* m_table = nullptr;
};
