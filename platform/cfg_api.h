#pragma once
// The gateway's closed libraries as the service uses them: the configuration store's client library
// (libcfg) and the INI library. Calls that return int return an ENUM_CFG_ERROR value, 0 for success,
// unless said otherwise. A session belongs to the thread that started it.

#include <cstddef>

#include "platform/mgmtutil.h"

enum ENUM_CFG_ERROR {
  CFG_ERR_OK = 0,
  CFG_ERR_AGAIN = 1,
  CFG_ERR_EMPTY = 2,
  CFG_ERR_BLOCK = 3,
  CFG_ERR_EOF = 4,
  CFG_ERR_MEM = 5,
  CFG_ERR_COMM = 6,
  CFG_ERR_CMD = 7,
  CFG_ERR_EXPECTED = 8,
  CFG_ERR_MSG = 9,
  CFG_ERR_INTERNAL = 10,
  CFG_ERR_TIMEOUT = 11,
  CFG_ERR_SIZE = 12,
  CFG_ERR_PARMS = 13,
  CFG_ERR_RANGE = 14,
  CFG_ERR_OTHER = 15
};

enum ENUM_CFG_ROLE {
  CFG_ROLE_MODEM = 0,
  CFG_ROLE_WEB_GUI = 1,
  CFG_ROLE_LAN_MGMT = 2,
  CFG_ROLE_WAN_MGMT = 3,
  CFG_ROLE_CMDLINE = 4,
  CFG_ROLE_FACTORY = 5,
  CFG_ROLE_FACTORY_UPDATE = 6,
  CFG_ROLE_FACTORY_TR069_UPDATE = 7,
  CFG_ROLE_END = 8
};

/// A snapshot of one table. Row 0 of the cells is the header row; column c of data row r (from 0) is
/// aszCells[(r + 1) * nCols + c].
struct ST_CFG_TABLE_S {
  void* pvData;
  void* pvFill;
  std::size_t nBufSize;
  int nRows; ///< data rows, the header row not counted
  int nCols;
  char** aszCells;
  char szDbgStr1[16];
  char szDbgStr2[16];
  int iDbgLine;
  ST_CFG_TABLE_S* next;
  ST_CFG_TABLE_S* prev;
};
using ST_CFG_TABLE = ST_CFG_TABLE_S;

/// Called from inside cl_cfg_service() for a message on a subject that the session listens to.
using CFG_LISTENER = void (*)(void* session, const char* subject, const char* body);

extern "C" {

/// Starts a session in a role (ENUM_CFG_ROLE) under a name (may be null). Returns null on failure.
void* cfg_startSession(int role, const char* name);
int cfg_endSession(void* session);

/// Reads a whole table into a new snapshot, to be released with cfg_freeTable(). The last three
/// arguments name the caller for the store's own diagnostics.
int cl_cfg_getTable(void* session, const char* table, ST_CFG_TABLE** snapshot, const char* sourceFile,
                    const char* function, int line);
int cfg_freeTable(ST_CFG_TABLE* snapshot);

int cfg_startTransaction(void* session);
/// Returns the column's index, or -1 when the table has no such column.
int cfg_findCol(void* session, const char* table, const char* column);
/// Stages one cell (data row from 0) in the open transaction.
int cfg_setField(void* session, const char* table, int row, int column, const char* value);
int cfg_commitTransaction(void* session);
int cfg_abortTransaction(void* session);

/// Restores the factory configuration. `scope` is 0 for all of it.
int cfg_resetCfg(void* session, int scope);

int cfg_setListen(void* session, CFG_LISTENER listener);
int cfg_listenSubject(void* session, const char* subject);
int cfg_sendMsg(void* session, const char* subject, const char* body);
/// Delivers the messages that have arrived for the session; returns without waiting.
int cl_cfg_service(void* session, const char* sourceFile, const char* function, int line);

/// Applies the INI text in `client->pcData` (`uiImageLength` bytes) to the store. May change the two
/// flags, which ask the caller for a reboot and for a reset to factory configuration. Returns 0, or
/// non-zero when the text was refused and nothing was changed.
int ParseIniFile(stMgmtUtilClientInfo* client, int* rebootFlag, int* resetFlag, int options);
}
