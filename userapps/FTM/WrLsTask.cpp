#include "userapps/FTM/WrLsTask.h"

#include <net/if.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "userapps/FTM/FTM_Apis.h"
#include "userapps/FTM/FTM_App.h"
#include "userapps/FTM/FTM_Store.h"
#include "userapps/FTM/FTM_Tags.h"
#include "userapps/FTM/FTM_Text.h"

pthread_mutex_t stWrLsFtm_Mutex = PTHREAD_MUTEX_INITIALIZER;
ST_WL_FTM stWlFtm;
int iFtmWrLsCmd = eWRLS_IDLE;
int iOnceWrLs;
pthread_mutex_t stWlInfo_Mutex = PTHREAD_MUTEX_INITIALIZER;
ST_WL_INFO stWlInfo;

namespace {

constexpr useconds_t taskPause = 2'000'000;
constexpr int lowestChannel = 1;
constexpr int highestChannel = 11;
constexpr int noCommand = 1; // result of running none
constexpr std::size_t commandSize = 64;

void setChannel(const char* text) {
  copyText(stWlFtm.cChannelFtm, text, std::strlen(text));
}

void setSsid(const char* text) {
  copyText(stWlFtm.cSSIDinFtm, text, std::strlen(text));
}

// Adds one written value to the request. Returns false when it is none that the radio could take. Mutex held.
bool takeSetting(const ST_XML_ELEMENT* element) {
  const char* text = GetTextBody(element);
  if (text[0] == '\0')
    return true;
  if (std::strcmp(GetTag(element), "CHANNEL") == 0) {
    const int channel = decimalValue(text);
    if (channel < lowestChannel || channel > highestChannel)
      return false;
    iFtmWrLsCmd |= eWRLS_SET_CHNL;
    setChannel(text); // as written, whatever follows the number
  } else if (std::strcmp(GetTag(element), "SSID") == 0) {
    if (std::strlen(text) >= requestedSsidSize)
      return false;
    iFtmWrLsCmd |= eWRLS_SET_SSID;
    setSsid(text);
  }
  return true;
}

// Takes over what was read, and nothing else: the other thread may have read the rest meanwhile. stWlInfo_Mutex held.
void keepRead(const ST_WL_INFO& radio, E_WL_READ read) {
  if (read >= eWL_MAC)
    std::memcpy(stWlInfo.cMacAddr, radio.cMacAddr, sizeof stWlInfo.cMacAddr);
  if (read >= eWL_SSID)
    stWlInfo.stSSID = radio.stSSID;
  if (read >= eWL_CHANNEL)
    stWlInfo.stChnlInf = radio.stChnlInf;
  if (read >= eWL_COUNTRY)
    std::memcpy(stWlInfo.cDomain, radio.cDomain, sizeof stWlInfo.cDomain);
}

// What the radio reports now; what can't be read is what it last reported.
ST_WL_INFO refreshedRadio(void* session) {
  ST_WL_INFO radio{};
  const E_WL_READ read = WL_Read(&radio, session);
  const MutexLock lock(stWlInfo_Mutex);
  keepRead(radio, read);
  return stWlInfo;
}

void runWith(const char* command, const char* argument) {
  char text[commandSize];
  std::snprintf(text, sizeof text, "%s %s", command, argument);
  bcmSystemEx(text);
}

// The texts are the station's own, or the radio's, and reach the shell as they stand, shell characters included.
void setupAll() {
  bcmSystemEx("wlctl down");
  runWith("wlctl channel", stWlFtm.cChannelFtm);
  bcmSystemEx("wlctl up");
  runWith("wlctl ssid", stWlFtm.cSSIDinFtm);
}

void wlanSetup(void* session) {
  ifreq interface {};
  wl_find(session, &interface);
  if (interface.ifr_name[0] == '\0') {
    wl_reportMissing();
    return;
  }
  // The adapter's switch, row 0 column 0, counts as on whatever it holds: being readable is enough.
  const TableSnapshot config(session, "WlanConfig");
  if (config.isRead())
    setupAll();
}

// Completes a request for one of the two settings with the other as the radio has it. Mutex held.
void applyRequest(int command, void* session) {
  if (command == eWRLS_SET_CHNL) {
    char ssid[radioSsidTextSize];
    WL_SsidText(refreshedRadio(session).stSSID, ssid);
    setSsid(ssid);
  } else if (command == eWRLS_SET_SSID) {
    std::snprintf(stWlFtm.cChannelFtm, sizeof stWlFtm.cChannelFtm, "%d",
                  refreshedRadio(session).stChnlInf.target_channel);
  } else if (command != (eWRLS_SET_CHNL | eWRLS_SET_SSID)) {
    return;
  }
  wlanSetup(session);
}

// Applies the request that is waiting, if any. The mutex stays held while the commands run, so that a request parsed
// meanwhile waits for them.
void takeRequest() {
  const MutexLock lock(stWrLsFtm_Mutex);
  if (iFtmWrLsCmd == eWRLS_IDLE)
    return;
  {
    const StoreSession session(CFG_ROLE_MODEM, nullptr);
    if (!session.isOpen()) {
      board_syslog(LOG_CRIT, "FATAL: failed to start session\n");
      std::exit(-1); // with the mutex held: nothing must hand over a request any more
    }
    const int command = iFtmWrLsCmd;
    iFtmWrLsCmd = eWRLS_IDLE;
    applyRequest(command, session.get());
  }
  std::printf("stWlFtm.cSSIDinFtm =%s\n", stWlFtm.cSSIDinFtm);
  std::printf("stWlFtm.cChannelFtm =%s\n", stWlFtm.cChannelFtm);
}

void showRadio(const char* name, const char* text) {
  ST_XML_ELEMENT* element = GetElmtPtr(TestModeCfgTree(), "TEST_CONFIG", "BCOM_WIRELESS", name);
  if (element != nullptr)
    SetTextBody(element, text);
}

} // namespace

int FTM_ParseTagBCOM_WIRELESS(ST_XML_ELEMENT* pXmlWrLs) {
  unFtmState.usWd |= wirelessTestMask;
  ST_XML_ELEMENT** child = GetElements(pXmlWrLs);
  if (child == nullptr || *child == nullptr)
    return 0;
  const MutexLock lock(stWrLsFtm_Mutex);
  iFtmWrLsCmd = eWRLS_IDLE;
  for (; *child != nullptr; ++child)
    if (!takeSetting(*child)) {
      FTM_FlgErrorTFTP(0, szTstUnsp, 0);
      iFtmWrLsCmd = eWRLS_IDLE;
      stWlFtm = {};
      return -1;
    }
  return 0;
}

int FtmUpdateWireless() {
  ST_WL_INFO radio;
  {
    const StoreSession session(CFG_ROLE_MODEM, nullptr);
    if (!isUsable(session))
      return -1;
    radio = refreshedRadio(session.get());
  }
  char ssid[radioSsidTextSize];
  WL_SsidText(radio.stSSID, ssid);
  char channel[16];
  std::snprintf(channel, sizeof channel, "%d", radio.stChnlInf.target_channel);
  showRadio("SSID", ssid);
  showRadio("CHANNEL", channel);
  showRadio("DOMAIN", radio.cDomain);
  showRadio("MAC_ADDR", radio.cMacAddr);
  return 0;
}

void* WrLsTask(void*) {
  for (;;)
    WrLsTaskRound();
}

void WrLsTaskRound() {
  // The mutex is made before the program starts, because the parser may need it first; only the mark is left to set.
  iOnceWrLs = 1;
  takeRequest();
  board_usleep(taskPause);
}

int bcmSystemEx(const char* command) {
  if (command == nullptr)
    return noCommand;
  // The shell only reads its arguments.
  char* const arguments[] = {const_cast<char*>("sh"), const_cast<char*>("-c"), const_cast<char*>(command), nullptr};
  const pid_t child = board_spawn("/bin/sh", arguments, environ);
  if (child == -1)
    return -1;
  int status = 0;
  while (board_waitpid(child, &status, 0) == -1)
    if (errno != EINTR)
      return -1;
  return status;
}
