// Active tests, single cells of the configuration store, and the modem configuration record.
#include "userapps/FTM/FTM_Apis.h"

#include <bit>
#include <cstdio>
#include <cstring>

#include "userapps/FTM/FTM_App.h"
#include "userapps/FTM/FTM_Store.h"
#include "userapps/FTM/FTM_Text.h"

U_FTM_TST_FLAGS unFtmState;

namespace {

#ifndef __clang__ // which can't look at bit-fields at compile time
consteval std::uint16_t wordWith(void (*set)(ST_FTM_TST_FLAGS&)) {
  ST_FTM_TST_FLAGS flags{};
  set(flags);
  return std::bit_cast<std::uint16_t>(flags);
}
static_assert(wordWith([](auto& flags) { flags.bLedTst = 1; }) == ledTestMask);
static_assert(wordWith([](auto& flags) { flags.bRstSwTst = 1; }) == resetSwitchTestMask);
static_assert(wordWith([](auto& flags) { flags.bThrPutTst = 1; }) == throughputTestMask);
static_assert(wordWith([](auto& flags) { flags.bMulHybTst = 1; }) == multiHybridTestMask);
static_assert(wordWith([](auto& flags) { flags.bAutoPrTst = 1; }) == autoPairTestMask);
static_assert(wordWith([](auto& flags) { flags.bWirelessTst = 1; }) == wirelessTestMask);
static_assert(wordWith([](auto& flags) { flags.bVoiceTst = 1; }) == voiceTestMask);
#endif

constexpr const char* interfaceTable = "ProductInterfaces";
enum EInterfaceColumn { eNickname = 1, eInterfaceName = 2 };

modem_config stModemConfig;

bool hasNickname(const TableSnapshot& interfaces, int row, const char* nickname) {
  const char* cell = interfaces.cell(row, eNickname);
  return cell != nullptr && std::strcmp(cell, nickname) == 0;
}

// Name in the last row of the first run of rows with that nickname; null when there is none.
const char* interfaceName(const TableSnapshot& interfaces, const char* nickname) {
  const char* name = nullptr;
  for (int row = 0; row < interfaces.rows(); ++row) {
    if (hasNickname(interfaces, row, nickname))
      name = interfaces.cell(row, eInterfaceName);
    else if (name != nullptr)
      break;
  }
  return name;
}

bool findInterfaceName(void* session, const char* nickname, char* result) {
  const TableSnapshot interfaces(session, interfaceTable);
  if (!isUsable(interfaces, interfaceTable))
    return false;
  const char* name = interfaceName(interfaces, nickname);
  if (name == nullptr)
    return false;
  std::snprintf(result, interfaceNameSize, "%s", name);
  return true;
}

} // namespace

int FTM_CMwrite_var(const char* pszTblName, const char* pszColName, int iRow, const char* pszValue) {
  if (pszTblName == nullptr)
    return -1;
  const StoreSession session(CFG_ROLE_WEB_GUI, "FTM write");
  if (!session.isOpen())
    return -1;
  cfg_startTransaction(session.get());
  if (ftm_CMwrite_var(session.get(), pszTblName, pszColName, iRow, pszValue) != 0) {
    cfg_abortTransaction(session.get());
    return -1;
  }
  return cfg_commitTransaction(session.get()) == CFG_ERR_OK ? 0 : -1;
}

int ftm_CMwrite_var(void* pvCfgSession, const char* pszTblName, const char* pszColName, int iRow,
                    const char* pszValue) {
  if (pszTblName == nullptr)
    return -1;
  // A column that there is not is left to the store to refuse, so that the line shows what it answered.
  const int column = cfg_findCol(pvCfgSession, pszTblName, pszColName);
  if (cfg_setField(pvCfgSession, pszTblName, iRow, column, pszValue) == CFG_ERR_OK)
    return 0;
  FTM_FlgErrorTFTP(0, szWrFail, 0);
  std::printf("FTM write failed on table=%s row=%d col=%d(%s) value='%s'\n", pszTblName, iRow, column, pszColName,
              pszValue);
  return -1;
}

int GetInterfaceName(void* pvSession, const char* pcNickName, char* pcInfNameRslt) {
  std::memset(pcInfNameRslt, 0, interfaceNameSize);
  if (findInterfaceName(pvSession, pcNickName, pcInfNameRslt))
    return 0;
  std::printf("%s Interface Name is not available\n", pcNickName);
  return -1;
}

MODEM_CONFIG_TABLE* MCFG_getMCfgPtr() {
  constexpr char model[] = "ModelNum";
  copyText(stModemConfig.ModelNum.assigned, model, sizeof model);
  return &stModemConfig;
}

int MCFG_cpyMCfg(MODEM_CONFIG_TABLE* dest) {
  *dest = stModemConfig;
  return 0;
}

char* FileNameINI() {
  return stModemConfig.factoryTable.aucFileNameINI;
}

char* VersionINI() {
  return stModemConfig.factoryTable.aucVersionINI;
}

const char* XCVR_DspSwVersion() {
  return "DspSwVersion";
}

const char* XCVR_Description() {
  return "XCVR Description";
}
