#include "userapps/FTM/manu_core.h"

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "platform/board.h"
#include "platform/cfg_api.h"
#include "userapps/FTM/FTM_App.h"
#include "userapps/FTM/FTM_Handles.h"

namespace {

constexpr pid_t initProcess = 1;
constexpr useconds_t restartDelay = 1'000'000; // microseconds

stMgmtUtilClientInfo stIniClient;

void resetConfiguration() {
  const StoreSession session(CFG_ROLE_MODEM, "reset_cfg");
  if (session.isOpen())
    cfg_resetCfg(session.get(), 0);
}

void restartDevice() {
  board_usleep(restartDelay);
  board_kill(initProcess, SIGTERM);
}

} // namespace

ST_TFTP_ERROR* FtmProcessINI(char* pacIni, const char*) {
  stIniClient.pcData = pacIni;
  stIniClient.uiImageLength = static_cast<std::uint32_t>(std::strlen(pacIni));
  int reboot = 0;
  int reset = 1;
  if (ParseIniFile(&stIniClient, &reboot, &reset, 0) != 0) {
    FTM_FlgErrorTFTP(0, szWrFail, 0);
    std::fputs("Process INI Fail!", stdout);
    return FTM_ErrorTFTP();
  }
  if (reset == 1)
    resetConfiguration();
  if (reboot == 1)
    restartDevice();
  return nullptr;
}
