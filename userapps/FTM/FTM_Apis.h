#pragma once
// Device operations: configuration store, flash management. Operations that return int return 0, or
// -1 on failure. TFTP server task only, unless said otherwise.

#include <cstdint>

#include "platform/cfg_api.h"
#include "userapps/FTM/ConfigRecord.h"

// Active tests.

/// One bit for each test; the same masks in `usWd` on hosts of either byte order.
struct ST_FTM_TST_FLAGS {
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
  std::uint16_t bLedTst : 1, bRstSwTst : 1, bThrPutTst : 1, bMulHybTst : 1, bAutoPrTst : 1, bWirelessTst : 1,
      bVoiceTst : 1, bSpare : 1, bSpare1 : 8;
#else
  std::uint16_t bSpare1 : 8, bSpare : 1, bVoiceTst : 1, bWirelessTst : 1, bAutoPrTst : 1, bMulHybTst : 1,
      bThrPutTst : 1, bRstSwTst : 1, bLedTst : 1;
#endif
};

union U_FTM_TST_FLAGS {
  std::uint16_t usWd;
  ST_FTM_TST_FLAGS stbF;
};

extern U_FTM_TST_FLAGS unFtmState;

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

// LEDs, relays and buttons.

constexpr unsigned int allLedsPoint = 100;    ///< for ledTest(): all LEDs at once
constexpr unsigned int leaveTestSetting = 99; ///< for ledTest(): the driver leaves factory test mode

/// Writes a GPIO point after putting the driver into factory test mode, or takes it out of that mode.
int ledTest(unsigned int iLed, unsigned int iSetting);
/// Value of a GPIO point, or -1.
int getLedState(unsigned int led);
