#include <linux/sockios.h>
#include <net/if.h>
#include <syslog.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/bcmnet.h"
#include "userapps/FTM/FTM_Apis.h"
#include "userapps/FTM/FTM_App.h"
#include "userapps/FTM/FTM_Store.h"
#include "userapps/FTM/FTM_Tags.h"
#include "userapps/FTM/FTM_Text.h"

char cSpeed[speedTextSize];

namespace {

constexpr const char* ethernetPrefix = "eth";
constexpr int selectablePorts = 4;

enum ESwitchStatColumn { eSwitchLink = 0, eSwitchSpeed = 1 };
constexpr const char* linkUpWord = "up";

struct SpeedName {
  unsigned long bitsPerSecond;
  const char* text;
};
constexpr SpeedName speedNames[] = {{10'000'000, "10"}, {100'000'000, "100"}};

Descriptor openControlSocket() {
  return Descriptor(board_socket(AF_INET, SOCK_DGRAM, 0));
}

// The interface request record, whose first 32 bytes are the same on every host. A name that fills its field has no
// NUL.
ifreq requestFor(const char* interface) {
  ifreq request{};
  std::memcpy(request.ifr_name, interface, strnlen(interface, sizeof request.ifr_name));
  return request;
}

// Asks for one of the driver's int answers.
int requestInt(int socket, const char* interface, unsigned long code, int& answer) {
  ifreq request = requestFor(interface);
  request.ifr_data = reinterpret_cast<char*>(&answer);
  return board_ioctl(socket, code, &request);
}

void writeSpeedText(unsigned long bitsPerSecond) {
  for (const SpeedName& name : speedNames)
    if (name.bitsPerSecond == bitsPerSecond) {
      std::snprintf(cSpeed, sizeof cSpeed, "%s", name.text);
      return;
    }
  std::snprintf(cSpeed, sizeof cSpeed, "%d", static_cast<int>(bitsPerSecond));
}

} // namespace

int EthernetSpeedGet(unsigned short usEthNum, unsigned long* pulEthXSpeed) {
  const Descriptor socket = openControlSocket();
  // Fatal on purpose: without control sockets nothing that the unit reports can be trusted.
  if (!socket.isOpen()) {
    board_syslog(LOG_ERR, "FTM Cannot open socket");
    std::exit(-1);
  }
  char interface[IFNAMSIZ];
  std::snprintf(interface, sizeof interface, "%s%d", ethernetPrefix, usEthNum);
  int speed = 0;
  const int result = requestInt(socket.get(), interface, SIOCCURRENTSPEED, speed);
  if (result < 0)
    board_syslog(LOG_ERR, "Get SIOCCURRENTSPEED ioctl failed");
  else
    *pulEthXSpeed = static_cast<unsigned long>(speed);
  return result;
}

const char* XML_FTM_PortSpeed() {
  unsigned long bitsPerSecond = 0;
  if (EthernetSpeedGet(0, &bitsPerSecond) >= 0 && bitsPerSecond != 0) {
    writeSpeedText(bitsPerSecond);
    return cSpeed;
  }
  // The switch's text may come without a NUL: what an earlier answer left behind it must not show.
  std::memset(cSpeed, 0, sizeof cSpeed);
  return FtmGetSwitchSpeed(cSpeed) == 0 ? cSpeed : nullptr;
}

int GetSwitchSpeedStng(char* pcSpeed, int iRow, const ST_CFG_TABLE* pstTbl) {
  const char* link = TableSnapshot::tableCell(*pstTbl, iRow, eSwitchLink);
  if (link == nullptr || std::strcmp(link, linkUpWord) != 0)
    return -1;
  const char* speed = TableSnapshot::tableCell(*pstTbl, iRow, eSwitchSpeed);
  std::memset(pcSpeed, 0, switchSpeedSize);
  if (speed != nullptr)
    std::memcpy(pcSpeed, speed, strnlen(speed, switchSpeedSize));
  return 0;
}

int FtmGetSwitchSpeed(char* pcSpeed) {
  const StoreSession session(CFG_ROLE_MODEM, nullptr);
  if (!isUsable(session))
    return -1;
  const TableSnapshot ports(session.get(), "SwitchStat");
  if (!isUsable(ports, "SwitchStat"))
    return -1;
  int result = -1;
  // Every port is looked at: the last one that is up gives the speed.
  for (int row = 0; row < selectablePorts; ++row)
    if (GetSwitchSpeedStng(pcSpeed, row, ports.get()) == 0)
      result = 0;
  return result;
}

int FtmUpdateEthX(const char* pEthNm) {
  const Descriptor socket = openControlSocket();
  if (!socket.isOpen()) {
    board_syslog(LOG_ERR, "Cannot open AF_INET socket");
    return 0;
  }
  ifreq request = requestFor(pEthNm);
  if (board_ioctl(socket.get(), SIOCGIFFLAGS, &request) < 0) {
    board_syslog(LOG_ERR, "SIOCGIFFLAGS ioctl failed");
    return 0;
  }
  // Either flag is enough for the link to be asked.
  const bool isUpOrRunning = (request.ifr_flags & (IFF_UP | IFF_RUNNING)) != 0;
  return isUpOrRunning ? FtmBroadcomEstate(socket.get(), pEthNm) : 0;
}

int FtmBroadcomEstate(int sockfd, const char* iface) {
  int linkState = 0;
  if (requestInt(sockfd, iface, SIOCGLINKSTATE, linkState) < 0)
    return 0;
  return linkState;
}

int ftmConvertToKBS(const char* pcSpeedBS, char* pcSpeedKBS) {
  // Single precision throughout: the station expects its rounding.
  const float kilobits = static_cast<float>(decimalValue(pcSpeedBS)) / 1000.0F;
  std::snprintf(pcSpeedKBS, kilobitTextSize, "%10.3f", static_cast<double>(kilobits));
  return 0;
}

int FtmUpdETHER_PORT_SPD() {
  ST_XML_ELEMENT* element = GetElmtPtr(TestModeCfgTree(), "TEST_CONFIG", "ETHER_PORT", "ETHER_PORT_SPD");
  if (element == nullptr)
    return -1;
  const char* speed = XML_FTM_PortSpeed();
  if (speed == nullptr)
    return -1;
  SetTextBody(element, speed);
  return 0;
}

const char* XML_FTM_PortActive(unsigned char) {
  return "NO";
}

const char* XML_FTM_PsdMode() {
  return nullptr;
}

int FtmUpdPSD_SETTING() {
  return -1;
}

int FtmActionPsdModeAuto() {
  return -1;
}

int FtmActionPsdModeOn() {
  return -1;
}

int FtmActionPsdModeOff() {
  return -1;
}

int FtmActionETHER_PORT_SPD(unsigned char ucSpeed) {
  constexpr unsigned char automatic = 0;
  if (ucSpeed != automatic && ucSpeed != 10 && ucSpeed != 100)
    return -1;
  for (unsigned char port = 0; port < selectablePorts; ++port)
    eswitch_SpeedSet(port, ucSpeed);
  return 0;
}

int eswitch_PortActive(unsigned char) {
  return 0;
}

int eswitch_SpeedGet(unsigned char) {
  return 0;
}

int eswitch_SpeedSet(unsigned char, unsigned char) {
  return 0;
}
