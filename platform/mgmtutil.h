#pragma once
// The management-utility client record. The service keeps one per test station that talks to it, and
// the INI library takes a text to apply in the same record.

#include <netinet/in.h>

#include <cstdint>

/// What a client is doing (`iState`).
enum CommStates : std::uint32_t { eIdle = 0, eUpgradeInProgress = 1, eHexInProgress = 2 };

struct stMgmtUtilClientInfo {
  sockaddr_in ClientAddr;               ///< address and port as received
  std::uint32_t iTimeOut;               ///< seconds left before the slot expires; 0: the slot is free
  std::uint32_t iState;                 ///< a CommStates value
  std::uint32_t uiBlockNumber;          ///< reserved
  std::uint32_t iTotalBytesRx;          ///< reserved
  std::uint32_t uiTotalBytesRxExpected; ///< reserved
  std::uint32_t uiImageLength;          ///< length of pcData
  std::uint32_t uiImageCheckSum;        ///< reserved
  std::uint32_t uiRunningImageCheckSum; ///< reserved
  char* pcData;                         ///< heap buffer owned by a slot; an INI text when given to ParseIniFile()
  char* pszSRec;                        ///< heap buffer owned by a slot
};
