#pragma once
// Device operations: configuration store, flash management. Operations that return int return 0, or
// -1 on failure. TFTP server task only, unless said otherwise.

#include "platform/cfg_api.h"
#include "userapps/FTM/ConfigRecord.h"

// Configuration store.

constexpr int interfaceNameSize = 52;

/// Writes one cell in a session and transaction of its own.
int FTM_CMwrite_var(const char* pszTblName, const char* pszColName, int iRow, const char* pszValue);
/// Writes one cell in the caller's session and transaction.
int ftm_CMwrite_var(void* pvCfgSession, const char* pszTblName, const char* pszColName, int iRow, const char* pszValue);
/// Interface name of a nickname ("Wireless", "Omnilane"); `pcInfNameRslt` holds interfaceNameSize bytes.
int GetInterfaceName(void* pvSession, const char* pcNickName, char* pcInfNameRslt);

/// Address of the modem configuration record, with "ModelNum" stored as its assigned model.
MODEM_CONFIG_TABLE* MCFG_getMCfgPtr();
/// Copies the whole record. Returns 0.
int MCFG_cpyMCfg(MODEM_CONFIG_TABLE* dest);
char* FileNameINI();
char* VersionINI();
const char* XCVR_DspSwVersion();
const char* XCVR_Description();

// Flash management.

/// Reboots the unit, into safe boot when `iReBootCmd` is not 0. Returns 0. Any thread.
int FTM_Reboot(int iReBootCmd);
/// Software version of the test mode: a text of at most 31 characters that stays valid.
const char* FTM_GetSoftwareVersion();
/// Writes the boot delay as decimal text (at most 4 bytes with its NUL) into `pcBtMode`.
int FTM_GetBootMode(char* pcBtMode);
/// Sets the boot delay from decimal text.
int FTM_PutBootMode(const char* pcBtMode);
