#pragma once
// The wireless test: what the station asks for is parsed on the TFTP server task and applied by a task of its own.

#include <pthread.h>

#include <cstddef>

#include "userapps/FTM/WrLsIoctl.h"

struct ST_XML_ELEMENT;

constexpr std::size_t requestedSsidSize = 32;
constexpr std::size_t requestedChannelSize = 4;

/// The settings asked for, completed with the radio's own.
struct ST_WL_FTM {
  char cSSIDinFtm[requestedSsidSize];
  char cChannelFtm[requestedChannelSize]; ///< decimal text
};

/// Bits of iFtmWrLsCmd.
enum E_WRLS_CMD {
  eWRLS_IDLE = 0,
  eWRLS_SET_CHNL = 1,
  eWRLS_SET_SSID = 2,
  eWRLS_SET_WEP_KEYS = 4, ///< reserved
  eWRLS_MAX = 5
};

extern pthread_mutex_t stWrLsFtm_Mutex; ///< usable before the task has run
extern ST_WL_FTM stWlFtm;               ///< guarded by stWrLsFtm_Mutex
extern int iFtmWrLsCmd;                 ///< the request, E_WRLS_CMD bits; guarded by stWrLsFtm_Mutex
extern int iOnceWrLs;                   ///< 1 once the task has run; the task's own
extern pthread_mutex_t stWlInfo_Mutex;  ///< guards stWlInfo; never held while the driver is asked
extern ST_WL_INFO stWlInfo;             ///< what the radio last reported, to either thread

/// Hands a written "BCOM_WIRELESS" to the task, in place of a request that it has not taken yet. Returns 0, or -1 with
/// the error record set and nothing handed over. TFTP server task.
int FTM_ParseTagBCOM_WIRELESS(ST_XML_ELEMENT* pXmlWrLs);
/// Shows the radio in the test configuration tree. Returns 0, or -1 when no store session can be opened. TFTP server
/// task.
int FtmUpdateWireless();

/// Thread body: applies requests, one round every two seconds. Never returns; ends the process when no store session
/// can be opened.
void* WrLsTask(void* NoPassedParms);
/// One round of it, with the pause.
void WrLsTaskRound();

/// Runs a shell command and waits for it. Returns the raw wait status, -1 when that is not possible, 1 without a
/// command.
int bcmSystemEx(const char* command);
