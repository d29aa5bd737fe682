// The configuration store's client library: sessions, snapshots, transactions and the factory reset.
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "platform/cfg_api.h"
#include "simulator/faults.h"
#include "simulator/journal.h"
#include "simulator/store/session.h"
#include "simulator/store/tables.h"
#include "simulator/unit.h"

using namespace gateway;

namespace {

constexpr int wholeConfiguration = 0;
constexpr unsigned managementRoles = 1U << CFG_ROLE_LAN_MGMT | 1U << CFG_ROLE_WAN_MGMT;

bool mayWrite(const Session& session, const StoreTable& table) {
  return (table.writers >> session.role & 1U) != 0;
}

bool mayReset(const Session& session) {
  return (managementRoles >> session.role & 1U) == 0;
}

int stage(Session& session, const StoreTable& table, int row, int column, const char* value) {
  Tables& tables = theUnit().tables();
  const auto& columns = tables.columns(table);
  if (row < 0 || column < 0 || static_cast<std::size_t>(column) >= columns.size() || row >= tables.rows(table))
    return CFG_ERR_RANGE;
  if (theUnit().faults().has({"field", columns[static_cast<std::size_t>(column)]}))
    return CFG_ERR_OTHER;
  session.staged.push_back({&table, row, column, value});
  return CFG_ERR_OK;
}

int writeStaged(const std::vector<StagedCell>& cells) {
  Unit& unit = theUnit();
  unit.journalBook().flush();
  Transaction transaction(unit.database());
  for (const StagedCell& cell : cells) {
    if (!unit.tables().setCell(*cell.table, cell.row, cell.column, cell.value))
      return CFG_ERR_RANGE;
    const std::string& column = unit.tables().columns(*cell.table)[static_cast<std::size_t>(cell.column)];
    unit.journalBook().insert("write", writeText(cell.table->name, cell.row, column, cell.value));
  }
  transaction.commit();
  return CFG_ERR_OK;
}

int restoreFactory() {
  Unit& unit = theUnit();
  unit.journalBook().flush();
  Transaction transaction(unit.database());
  unit.tables().restoreFactory();
  unit.journalBook().insert("reset", "factory configuration");
  transaction.commit();
  return CFG_ERR_OK;
}

} // namespace

void* cfg_startSession(int role, const char* name) {
  if (role < 0 || role >= CFG_ROLE_END)
    return nullptr;
  void* session = nullptr;
  guarded([&] {
    if (theUnit().faults().has("session"))
      return CFG_ERR_COMM;
    session = new Session{.role = static_cast<unsigned>(role), .name = name != nullptr ? name : ""};
    return CFG_ERR_OK;
  });
  return session;
}

int cfg_endSession(void* session) {
  if (session == nullptr)
    return CFG_ERR_PARMS;
  delete static_cast<Session*>(session);
  return CFG_ERR_OK;
}

int cl_cfg_getTable(void* session, const char* table, ST_CFG_TABLE** snapshot, const char*, const char*, int) {
  if (snapshot == nullptr)
    return CFG_ERR_PARMS;
  *snapshot = nullptr;
  if (session == nullptr || table == nullptr)
    return CFG_ERR_PARMS;
  return guarded([&] {
    const StoreTable* const found = findTable(table);
    if (found == nullptr)
      return CFG_ERR_RANGE;
    if (theUnit().faults().has({"table", found->name}))
      return CFG_ERR_OTHER;
    *snapshot = theUnit().tables().snapshot(*found);
    return CFG_ERR_OK;
  });
}

int cfg_freeTable(ST_CFG_TABLE* snapshot) {
  if (snapshot == nullptr)
    return CFG_ERR_PARMS;
  std::free(snapshot);
  return CFG_ERR_OK;
}

int cfg_startTransaction(void* session) {
  if (session == nullptr)
    return CFG_ERR_PARMS;
  return guarded([&] {
    Session& started = *static_cast<Session*>(session);
    if (started.isInTransaction)
      return CFG_ERR_BLOCK;
    if (theUnit().faults().has("transaction"))
      return CFG_ERR_OTHER;
    started.isInTransaction = true;
    return CFG_ERR_OK;
  });
}

int cfg_findCol(void* session, const char* table, const char* column) {
  if (session == nullptr || table == nullptr || column == nullptr)
    return -1;
  int position = -1;
  guarded([&] {
    const StoreTable* const found = findTable(table);
    if (found != nullptr)
      position = theUnit().tables().findColumn(*found, column);
    return CFG_ERR_OK;
  });
  return position;
}

int cfg_setField(void* session, const char* table, int row, int column, const char* value) {
  if (session == nullptr || table == nullptr || value == nullptr)
    return CFG_ERR_PARMS;
  return guarded([&]() -> int {
    Session& writing = *static_cast<Session*>(session);
    const StoreTable* const found = findTable(table);
    if (found == nullptr)
      return CFG_ERR_RANGE;
    if (!writing.isInTransaction)
      return CFG_ERR_EXPECTED;
    if (!mayWrite(writing, *found))
      return CFG_ERR_CMD;
    return stage(writing, *found, row, column, value);
  });
}

int cfg_commitTransaction(void* session) {
  if (session == nullptr)
    return CFG_ERR_PARMS;
  return guarded([&]() -> int {
    Session& writing = *static_cast<Session*>(session);
    if (!writing.isInTransaction)
      return CFG_ERR_EXPECTED;
    const std::vector<StagedCell> cells = std::exchange(writing.staged, {});
    writing.isInTransaction = false;
    if (theUnit().faults().has("commit"))
      return CFG_ERR_OTHER;
    return cells.empty() ? CFG_ERR_OK : writeStaged(cells);
  });
}

int cfg_abortTransaction(void* session) {
  if (session == nullptr)
    return CFG_ERR_PARMS;
  Session& writing = *static_cast<Session*>(session);
  if (!writing.isInTransaction)
    return CFG_ERR_EXPECTED;
  writing.staged.clear();
  writing.isInTransaction = false;
  return CFG_ERR_OK;
}

int cfg_resetCfg(void* session, int scope) {
  if (session == nullptr || scope != wholeConfiguration)
    return CFG_ERR_PARMS;
  return guarded([&]() -> int {
    if (!mayReset(*static_cast<Session*>(session)))
      return CFG_ERR_CMD;
    if (theUnit().faults().has("reset"))
      return CFG_ERR_OTHER;
    return restoreFactory();
  });
}
