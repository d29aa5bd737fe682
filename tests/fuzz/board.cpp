// A board whose drivers answer with whatever results and records: what the station asks for is served, or refused. Each
// request takes a result and then its record from the input.
#include <linux/sockios.h>
#include <net/if.h>

#include <cerrno>
#include <cstring>

#include "platform/adsldrv.h"
#include "platform/bcmnet.h"
#include "platform/board.h"
#include "platform/flashmgmt.h"
#include "platform/gpioctrl.h"
#include "platform/wlioctl.h"
#include "tests/fuzz/fresh_unit.h"
#include "tests/fuzz/fuzz.h"
#include "userapps/FTM/FTM_App.h"
#include "userapps/FTM/WrLsTask.h"

namespace {

fuzz::Input* answers;

/// What a driver may write.
struct Record {
  void* data;
  std::size_t size;
};

Record recordOf(unsigned long request, void* argument) {
  switch (request) {
  case GPIOCTRL_READIO:
    return {argument, sizeof(led_gpio_readwrite)};
  case FLSHMGMT_GET_BOOTMODE:
    return {argument, sizeof(ST_BOOTMODE_INFO)};
  case FLSHMGMT_GET_FTMSOFTWAREVERSION:
    return {argument, ftmSoftwareVersionSize};
  case ADSLIOCTL_CONNECTION_START:
  case ADSLIOCTL_CONNECTION_STOP:
    return {argument, sizeof(std::int32_t)};
  case SIOCGIFFLAGS:
    return {&static_cast<ifreq*>(argument)->ifr_flags, sizeof(short)};
  case SIOCGLINKSTATE:
  case SIOCCURRENTSPEED:
    return {static_cast<ifreq*>(argument)->ifr_data, sizeof(int)};
  default:
    return {nullptr, 0};
  }
}

Record recordOf(const wl_ioctl& request) {
  return {request.buf, request.set != 0 ? 0 : request.len};
}

/// Most interfaces are of this driver; the radio behind another one is never asked.
bool isProbe(const wl_ioctl& request) {
  return request.cmd == WLC_GET_MAGIC || request.cmd == WLC_GET_VERSION;
}

int answerProbe(const wl_ioctl& request) {
  const std::uint32_t value = request.cmd == WLC_GET_MAGIC ? WLC_IOCTL_MAGIC : 1;
  std::memcpy(request.buf, &value, sizeof value);
  return 0;
}

int answerFrom(const Record& record, std::uint8_t kind) {
  const std::string_view bytes = answers->text(record.size);
  if (!bytes.empty())
    std::memcpy(record.data, bytes.data(), bytes.size());
  errno = EIO;
  return kind % 4 == 3 ? -1 : kind / 4;
}

constexpr std::string_view config =
    "<TEST_CONFIG><AUTO_PAIR><AUTO_MODE>OUTER</AUTO_MODE></AUTO_PAIR><BCOM_WIRELESS><CHANNEL>6</CHANNEL>"
    "</BCOM_WIRELESS><LED><SINGLE_LED NUM=\"3\" MODE=\"ON\"/><WPS_LED>ON</WPS_LED><ALL_LEDS>OFF</ALL_LEDS></LED>"
    "</TEST_CONFIG>";

struct Write {
  const char* file;
  std::string_view text;
};
constexpr Write writes[] = {
    {szFTM_TestModeCfg, config},
    {szFTM_ModemInfo, "<MODEM_INFO><BOOT_DELAY>7</BOOT_DELAY></MODEM_INFO>"},
    {szFTM_TestModeOp, "<ENTER_TEST><RESET_SWITCH/></ENTER_TEST>"},
    {szFTM_TestModeOp, "<EXIT_TEST/>"},
    {szFTM_TestModeOp, "<RESYNC/>"},
    {szFTM_TestModeOp, "<REBOOT/>"},
};

} // namespace

int wrap_ioctl(int descriptor, unsigned long request, void* argument) asm("__wrap_board_ioctl");

int wrap_ioctl(int, unsigned long request, void* argument) {
  const std::uint8_t kind = answers->byte();
  if (request != SIOCDEVPRIVATE)
    return answerFrom(recordOf(request, argument), kind);
  const auto& wireless = *reinterpret_cast<const wl_ioctl*>(static_cast<ifreq*>(argument)->ifr_data);
  if (isProbe(wireless) && kind % 16 < 12)
    return answerProbe(wireless);
  return answerFrom(recordOf(wireless), kind);
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzz::FreshUnit fresh;
  fuzz::Input input(data, size);
  answers = &input;
  fuzz::readAll();
  for (const Write& write : writes)
    fuzz::writeFile(write.file, write.text);
  WrLsTaskRound();
  return 0;
}
