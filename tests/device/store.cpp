// The configuration store's client library for a test on the gateway's program: a store in memory with the tables of
// the modem information. A session has its own transaction, and nothing of it is seen before its commit.
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/cfg_api.h"

namespace {

using Row = std::vector<std::string>;

constexpr std::size_t columnsOfTransceiver = 36;

struct Table {
  Row columns;
  Row cells; ///< of its one row
};

struct StagedCell {
  std::string* cell;
  std::string value;
};

struct Session {
  bool isInTransaction = false;
  std::vector<StagedCell> staged;
};

Table transceiver() {
  Table table{Row(columnsOfTransceiver), Row(columnsOfTransceiver)};
  table.cells[34] = "Test transceiver";
  table.cells[35] = "T1.2";
  return table;
}

std::mutex storeMutex;
std::map<std::string, Table> tables{
    {"ProductionData",
     {{"ModelNum", "SerialNum", "MacAddr", "Date", "Revision", "E164"},
      {"M-DEVICE", "S-DEVICE", "02:00:00:00:00:07", "01022003", "B", "5551234"}}},
    {"AppSwInfo",
     {{"Name", "Vendor", "Version", "BuildDate", "ReleaseBuildVersion"},
      {"App", "Maker", "9.8.7", "today", "9.8.7-b1"}}},
    {"ProductType", {{"Description", "Family"}, {"Device under test", "D"}}},
    {"ProductInfo", {{"IniFileName", "IniVersion", "SoftwareLoad"}, {"device.ini", "7.7", "L-DEVICE"}}},
    {"Xcvr", transceiver()},
};

/// A snapshot and the texts that its cells point to.
struct Snapshot {
  ST_CFG_TABLE table{};
  Row texts;
  std::vector<char*> cells;
};

Session& of(void* session) {
  return *static_cast<Session*>(session);
}

} // namespace

void* cfg_startSession(int, const char*) {
  return new Session;
}

int cfg_endSession(void* session) {
  delete static_cast<Session*>(session);
  return CFG_ERR_OK;
}

int cl_cfg_getTable(void*, const char* name, ST_CFG_TABLE** result, const char*, const char*, int) {
  const std::lock_guard lock(storeMutex);
  const auto found = tables.find(name);
  if (found == tables.end())
    return CFG_ERR_EXPECTED;
  auto snapshot = std::make_unique<Snapshot>();
  snapshot->texts = found->second.columns;
  snapshot->texts.insert(snapshot->texts.end(), found->second.cells.begin(), found->second.cells.end());
  for (std::string& text : snapshot->texts)
    snapshot->cells.push_back(text.data());
  snapshot->table.pvData = snapshot.get();
  snapshot->table.nRows = 1;
  snapshot->table.nCols = static_cast<int>(found->second.columns.size());
  snapshot->table.aszCells = snapshot->cells.data();
  *result = &snapshot.release()->table;
  return CFG_ERR_OK;
}

int cfg_freeTable(ST_CFG_TABLE* table) {
  delete static_cast<Snapshot*>(table->pvData);
  return CFG_ERR_OK;
}

int cfg_startTransaction(void* session) {
  of(session).isInTransaction = true;
  return CFG_ERR_OK;
}

int cfg_findCol(void*, const char* name, const char* column) {
  const std::lock_guard lock(storeMutex);
  const auto found = tables.find(name);
  if (found == tables.end())
    return -1;
  const Row& columns = found->second.columns;
  for (std::size_t index = 0; index < columns.size(); ++index)
    if (columns[index] == column)
      return static_cast<int>(index);
  return -1;
}

int cfg_setField(void* session, const char* name, int row, int column, const char* value) {
  const std::lock_guard lock(storeMutex);
  const auto found = tables.find(name);
  if (!of(session).isInTransaction || found == tables.end() || row != 0 || column < 0 ||
      column >= static_cast<int>(found->second.cells.size()))
    return CFG_ERR_RANGE;
  of(session).staged.push_back({&found->second.cells[static_cast<std::size_t>(column)], value});
  return CFG_ERR_OK;
}

int cfg_commitTransaction(void* session) {
  const std::lock_guard lock(storeMutex);
  for (const StagedCell& staged : of(session).staged)
    *staged.cell = staged.value;
  return cfg_abortTransaction(session);
}

int cfg_abortTransaction(void* session) {
  of(session).staged.clear();
  of(session).isInTransaction = false;
  return CFG_ERR_OK;
}

int cfg_resetCfg(void*, int) {
  return CFG_ERR_OK;
}

int cfg_setListen(void*, CFG_LISTENER) {
  return CFG_ERR_OK;
}

int cfg_listenSubject(void*, const char*) {
  return CFG_ERR_OK;
}

int cfg_sendMsg(void*, const char*, const char*) {
  return CFG_ERR_OK;
}

int cl_cfg_service(void*, const char*, const char*, int) {
  return CFG_ERR_OK;
}
