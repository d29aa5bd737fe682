#include "userapps/FTM/WrLsIoctl.h"

#include <linux/sockios.h>
#include <net/if.h>
#include <syslog.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "userapps/FTM/FTM_Handles.h"
#include "userapps/FTM/FTM_Text.h"

namespace {

constexpr std::uint32_t unsupportedVersion = 3; // the first driver interface that is too new
constexpr std::size_t macAddressSize = 6;
constexpr std::size_t countrySize = 4;
constexpr std::size_t variableBufferSize = 256;
constexpr std::size_t shortVariableBufferSize = 128;

enum EInterfaceColumn { eNickname = 1, eInterfaceName = 2 };
constexpr const char* wirelessNickname = "Wireless";

// Whether the interface answers as a wireless driver of a version that these requests are made for. Returns 0, or a
// negative value.
int wl_check(void* wl) {
  std::uint32_t magic = 0;
  if (const int result = wl_get(wl, WLC_GET_MAGIC, &magic, sizeof magic); result < 0)
    return result;
  if (magic != WLC_IOCTL_MAGIC)
    return -1;
  std::uint32_t version = 0;
  if (const int result = wl_get(wl, WLC_GET_VERSION, &version, sizeof version); result < 0)
    return result;
  if (version < unsupportedVersion)
    return 0;
  std::fputs("Version mismatch, please upgrade\n", stderr);
  board_syslog(LOG_NOTICE, "Version mimatch, please upgrade\n"); // misspelt as the log has always had it
  return -1;
}

// Name of the first interface with the wireless nickname, or null.
const char* wirelessInterface(const TableSnapshot& interfaces) {
  for (int row = 0; row < interfaces.rows(); ++row) {
    const char* nickname = interfaces.cell(row, eNickname);
    if (nickname != nullptr && std::strcmp(nickname, wirelessNickname) == 0)
      return interfaces.cell(row, eInterfaceName);
  }
  return nullptr;
}

// The wireless interface, with an empty name when there is none.
ifreq findInterface(void* session) {
  ifreq interface {};
  wl_find(session, &interface);
  return interface;
}

bool isFound(const ifreq& interface) {
  return interface.ifr_name[0] != '\0';
}

int readMac(ifreq& interface, char (&text)[radioMacTextSize]) {
  unsigned char mac[macAddressSize] = {};
  if (wl_get(&interface, WLC_GET_MAC, mac, sizeof mac) < 0)
    return -1;
  std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
  return 0;
}

int readSsid(ifreq& interface, wlc_ssid_t& ssid) {
  wlc_ssid_t answer{};
  if (wl_get(&interface, WLC_GET_SSID, &answer, sizeof answer) < 0)
    return -1;
  ssid = answer;
  return 0;
}

int readChannel(ifreq& interface, channel_info_t& channel) {
  channel_info_t answer{};
  if (wl_get(&interface, WLC_GET_CHANNEL, &answer, sizeof answer) < 0)
    return -1;
  channel = answer;
  return 0;
}

int readCountry(ifreq& interface, char (&text)[radioCountryTextSize]) {
  char answer[countrySize] = {};
  if (wl_get(&interface, WLC_GET_COUNTRY, answer, sizeof answer) < 0)
    return -1;
  copyText(text, answer, sizeof answer);
  return 0;
}

// Sends "name", a NUL and the value; the buffer is as large as the driver takes for this kind of variable.
template <std::size_t size>
int setVariable(void* wl, const char* var, const void* val, int len) {
  char buffer[size] = {};
  const std::size_t nameSize = std::strlen(var) + 1;
  if (len < 0 || nameSize > size || static_cast<std::size_t>(len) > size - nameSize)
    return -1;
  std::memcpy(buffer, var, nameSize);
  if (len > 0)
    std::memcpy(buffer + nameSize, val, static_cast<std::size_t>(len));
  return wl_set(wl, WLC_SET_VAR, buffer, static_cast<int>(nameSize) + len);
}

// A failed request, with its buffer as the text that it may be.
void logFailure(const ifreq& interface, int cmd, int error, const void* buf, int len) {
  const char* text = buf != nullptr ? static_cast<const char*>(buf) : "";
  const int length = buf != nullptr ? std::max(len, 0) : 0;
  board_syslog(LOG_ERR, "%.*s:ioctl call failed,cmd=%d errno = %d, buf=%.*s\n", IFNAMSIZ, interface.ifr_name, cmd,
               error, length, text);
}

} // namespace

void WL_SsidText(const wlc_ssid_t& ssid, char* pcText) {
  const std::size_t length = std::min<std::size_t>(ssid.SSID_len, sizeof ssid.SSID);
  const std::size_t kept = strnlen(reinterpret_cast<const char*>(ssid.SSID), length);
  std::memcpy(pcText, ssid.SSID, kept);
  pcText[kept] = '\0';
}

void wl_reportMissing() {
  std::fputs("wl driver adapter not found\n", stderr);
  board_syslog(LOG_WARNING, "w1 driver adapter not found\n"); // a digit one, as the log has always had it
}

E_WL_READ WL_Read(ST_WL_INFO* pWI, void* pvSession) {
  ifreq interface = findInterface(pvSession);
  if (!isFound(interface)) {
    wl_reportMissing();
    return eWL_NOTHING;
  }
  if (readMac(interface, pWI->cMacAddr) < 0)
    return eWL_NOTHING;
  if (readSsid(interface, pWI->stSSID) < 0) {
    std::puts("wl_get Fail stSSID!");
    return eWL_MAC;
  }
  char ssid[radioSsidTextSize];
  WL_SsidText(pWI->stSSID, ssid);
  std::printf("pWlInfo->stSSID.SSID = %s\n", ssid);
  if (readChannel(interface, pWI->stChnlInf) < 0) {
    std::puts("wl_get Fail stChnlInf!");
    return eWL_SSID;
  }
  if (readCountry(interface, pWI->cDomain) < 0) {
    std::puts("wl_get Fail cDomain!");
    return eWL_CHANNEL;
  }
  return eWL_COUNTRY;
}

int WL_Info(ST_WL_INFO* pWI, void* pvSession) {
  return WL_Read(pWI, pvSession) == eWL_COUNTRY ? 0 : -1;
}

int WLinfo(void* pvSession, char* pcMacAddr) {
  ifreq interface = findInterface(pvSession);
  if (!isFound(interface)) {
    wl_reportMissing();
    return -1;
  }
  char mac[radioMacTextSize] = {};
  if (readMac(interface, mac) < 0)
    return -1;
  std::memcpy(pcMacAddr, mac, sizeof mac);
  return 0;
}

int WLinfoSSID(void* pvSession, char* pcSSID) {
  ifreq interface = findInterface(pvSession);
  if (!isFound(interface)) {
    std::puts("wl_find Fail !");
    return -1;
  }
  wlc_ssid_t stArg{};
  if (readSsid(interface, stArg) < 0) {
    std::puts("wl_get Fail !");
    return -1;
  }
  WL_SsidText(stArg, pcSSID);
  std::printf("stArg.SSID = %s\n", pcSSID);
  std::printf("cSSID = %s\n", pcSSID);
  return 0;
}

void wl_find(void* pvSession, struct ifreq* ifr) {
  std::memset(ifr->ifr_name, 0, sizeof ifr->ifr_name);
  // Silent: the wireless task uses this too, and the error record is not its own.
  const TableSnapshot interfaces(pvSession, "ProductInterfaces");
  if (!interfaces.isRead())
    return;
  const char* name = wirelessInterface(interfaces);
  if (name == nullptr || name[0] == '\0')
    return;
  copyText(ifr->ifr_name, name, std::strlen(name));
  if (wl_check(ifr) < 0)
    std::memset(ifr->ifr_name, 0, sizeof ifr->ifr_name);
}

int wl_get(void* wl, int cmd, void* buf, int len) {
  return wlan_ioctl(wl, cmd, buf, len, false, true);
}

int wl_set(void* wl, int cmd, void* buf, int len) {
  return wlan_ioctl(wl, cmd, buf, len, true, true);
}

int wlan_ioctl(void* wl, int cmd, void* buf, int len, bool set, bool errmsg) {
  const Descriptor control(board_socket(AF_INET, SOCK_DGRAM, 0));
  if (!control.isOpen()) {
    board_syslog(LOG_ERR, "wlan:can't open socket, errno=%d\n", errno);
    return -1;
  }
  wl_ioctl request{};
  request.cmd = static_cast<unsigned int>(cmd);
  request.buf = buf;
  request.len = static_cast<unsigned int>(len);
  request.set = set ? 1 : 0;
  ifreq& interface = *static_cast<ifreq*>(wl);
  interface.ifr_data = reinterpret_cast<char*>(&request);
  const int result = board_ioctl(control.get(), SIOCDEVPRIVATE, &interface);
  // Asking for the magic is how an interface is probed: no answer to that is no failure.
  if (result < 0 && cmd != WLC_GET_MAGIC && errmsg)
    logFailure(interface, cmd, errno, buf, len);
  interface.ifr_data = nullptr;
  return result;
}

int wl_get_val(void* wl, const char* var, void* val, int len) {
  char buffer[variableBufferSize] = {};
  const std::size_t nameSize = std::strlen(var) + 1;
  if (nameSize > sizeof buffer || len < 0 || static_cast<std::size_t>(len) > sizeof buffer)
    return -1;
  std::memcpy(buffer, var, nameSize);
  const int result = wl_get(wl, WLC_GET_VAR, buffer, sizeof buffer);
  if (result >= 0 && len > 0)
    std::memcpy(val, buffer, static_cast<std::size_t>(len));
  return result;
}

int wl_set_val(void* wl, const char* var, const void* val, int len) {
  return setVariable<variableBufferSize>(wl, var, val, len);
}

int wl_set_str(void* wl, const char* var, const void* val, int len) {
  return setVariable<shortVariableBufferSize>(wl, var, val, len);
}
