// Boot mode, software version of the test mode and reboot, by the flash-management driver.
#include <syslog.h>

#include <cstdint>
#include <cstdio>

#include "platform/flashmgmt.h"
#include "userapps/FTM/FTM_Apis.h"
#include "userapps/FTM/FTM_Handles.h"
#include "userapps/FTM/FTM_Text.h"

namespace {

char szFtmSwVersion[ftmSoftwareVersionSize];

// The driver keeps the delay in the low byte of a word, under a mark of ones; the usual delay is a word of ones.
constexpr unsigned int usualDelay = 5;
constexpr std::uint16_t usualDelayWord = 0xFFFF;
constexpr std::uint16_t delayMask = 0x00FF;
constexpr std::uint16_t markMask = 0xFF00;

std::uint16_t delayWord(std::uint16_t delay) {
  if (delay == 0)
    return 0;
  return delay == usualDelay ? usualDelayWord : static_cast<std::uint16_t>(delay | markMask);
}

unsigned int delayOf(std::uint16_t word) {
  const unsigned int delay = word & delayMask;
  return delay == delayMask ? usualDelay : delay;
}

} // namespace

int FTM_Reboot(int iReBootCmd) {
  const Descriptor flash = openDevice(flashManagementDevice);
  if (!flash.isOpen())
    return 0;
  board_ioctl(flash.get(), iReBootCmd != 0 ? FLSHMGMT_PREPARE_SAFEBOOT : FLSHMGMT_PREPARE_REBOOT, nullptr);
  board_ioctl(flash.get(), FLSHMGMT_REBOOT, nullptr);
  return 0;
}

const char* FTM_GetSoftwareVersion() {
  const Descriptor flash = openDevice(flashManagementDevice);
  if (!flash.isOpen())
    return szFtmSwVersion;
  if (board_ioctl(flash.get(), FLSHMGMT_GET_FTMSOFTWAREVERSION, szFtmSwVersion) < 0)
    board_syslog(LOG_ERR, "%s: FLSHMGMT_GET_FTMSOFTWAREVERSION ioctl failed", __func__);
  szFtmSwVersion[sizeof szFtmSwVersion - 1] = '\0'; // the driver may fill it to the last byte
  return szFtmSwVersion;
}

int FTM_GetBootMode(char* pcBtMode) {
  ST_BOOTMODE_INFO info{};
  int result = 0;
  if (const Descriptor flash = openDevice(flashManagementDevice);
      flash.isOpen() && board_ioctl(flash.get(), FLSHMGMT_GET_BOOTMODE, &info) < 0) {
    board_syslog(LOG_ERR, "FLSHMGMT_GET_BOOTMODE ioctl failed");
    result = -1;
  }
  std::snprintf(pcBtMode, bootModeTextSize, "%u", delayOf(info.ux16FTMmode));
  return result;
}

int FTM_PutBootMode(const char* pcBtMode) {
  const Descriptor flash = openDevice(flashManagementDevice);
  if (!flash.isOpen())
    return 0;
  const std::uint16_t word = delayWord(static_cast<std::uint16_t>(decimalValue(pcBtMode)));
  ST_BOOTMODE_INFO info{.bValid = 0, .ux16Bootmode = word, .ux16FTMmode = word};
  if (board_ioctl(flash.get(), FLSHMGMT_SET_BOOTMODE, &info) >= 0)
    return 0;
  board_syslog(LOG_ERR, "FLSHMGMT_SET_BOOTMODE ioctl failed");
  return -1;
}
