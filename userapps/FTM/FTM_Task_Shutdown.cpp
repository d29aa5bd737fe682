// The handshake that shuts down the device's non-essential applications.
#include <unistd.h>

#include <cstdio>

#include "platform/board.h"
#include "platform/cfg_api.h"
#include "userapps/FTM/FTM_Task.h"
#include "userapps/FTM/FTM_Text.h"

void* pvSession;
bool bNESDShutdownCalled;
bool bNESDShutdownComplete;

namespace {

constexpr useconds_t servicePeriod = 1'000'000;

/// The handshake's session is opened when it is first needed and kept: its listener lives in it.
bool hasSession() {
  if (pvSession == nullptr)
    pvSession = cfg_startSession(CFG_ROLE_MODEM, "FTM");
  if (pvSession == nullptr)
    std::fputs("error: failed to start session\n", stderr);
  return pvSession != nullptr;
}

void serviceSession() {
  if (hasSession())
    cl_cfg_service(pvSession, "FTM_Task.c", "waitForNEShutdown", __LINE__);
}

} // namespace

int setNEShutdown() {
  if (bNESDShutdownCalled)
    return 1;
  bNESDShutdownCalled = true;
  if (!hasSession())
    return CFG_ERR_COMM;
  if (cfg_setListen(pvSession, non_essential_app_shutdown) != CFG_ERR_OK)
    std::fputs("shutdown listener failed\n", stderr);
  else
    cfg_listenSubject(pvSession, "MMNESD_DONE");
  bNESDShutdownComplete = false;
  char processId[16];
  std::snprintf(processId, sizeof processId, "%d", static_cast<int>(getpid()));
  return cfg_sendMsg(pvSession, "MMNESD_START", processId);
}

int waitForNEShutdown() {
  serviceSession();
  while (!bNESDShutdownComplete) {
    board_usleep(servicePeriod);
    serviceSession();
  }
  return bNESDShutdownComplete;
}

void non_essential_app_shutdown(void*, const char*, const char* body) {
  const char* const result = body != nullptr ? body : "";
  std::printf("Non-Essential Shutdown complete rc=%s %d\n", result, decimalValue(result));
  bNESDShutdownComplete = true;
}
