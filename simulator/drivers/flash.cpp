// The flash-management driver: boot mode, test-mode software version and reboots.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/flashmgmt.h"
#include "simulator/database.h"
#include "simulator/drivers/driver.h"
#include "simulator/unit.h"

namespace gateway {

namespace {

int getBootMode(Unit& unit, ST_BOOTMODE_INFO& info) {
  const std::vector<std::string> modes = unit.database().firstRow("SELECT boot_mode, ftm_mode FROM flash");
  if (modes.empty())
    return -EIO;
  info.ux16Bootmode = static_cast<std::uint16_t>(std::atoi(modes[0].c_str()));
  info.ux16FTMmode = static_cast<std::uint16_t>(std::atoi(modes[1].c_str()));
  return 0;
}

int setBootMode(Unit& unit, const ST_BOOTMODE_INFO& info) {
  execute(unit.database(), "UPDATE flash SET boot_mode = ?, ftm_mode = ?", info.ux16Bootmode, info.ux16FTMmode);
  return 0;
}

int getVersion(Unit& unit, char* version) {
  const std::vector<std::string> versions = unit.database().firstRow("SELECT ftm_version FROM flash");
  if (versions.empty())
    return -EIO;
  std::memset(version, 0, ftmSoftwareVersionSize);
  versions[0].copy(version, ftmSoftwareVersionSize - 1);
  return 0;
}

int prepareReboot(Unit& unit, std::string_view kind) {
  execute(unit.database(), "UPDATE flash SET next_boot = ?", kind);
  return 0;
}

int answerRecord(Unit& unit, unsigned long request, void* argument) {
  if (argument == nullptr)
    return -EFAULT;
  switch (request) {
  case FLSHMGMT_GET_BOOTMODE:
    return getBootMode(unit, *static_cast<ST_BOOTMODE_INFO*>(argument));
  case FLSHMGMT_SET_BOOTMODE:
    return setBootMode(unit, *static_cast<const ST_BOOTMODE_INFO*>(argument));
  default:
    return getVersion(unit, static_cast<char*>(argument));
  }
}

int answer(Unit& unit, unsigned long request, void* argument) {
  switch (request) {
  case FLSHMGMT_PREPARE_REBOOT:
    return prepareReboot(unit, normalBoot);
  case FLSHMGMT_PREPARE_SAFEBOOT:
    return prepareReboot(unit, safeBoot);
  case FLSHMGMT_REBOOT:
    return 0; // see afterwards()
  case FLSHMGMT_GET_BOOTMODE:
  case FLSHMGMT_SET_BOOTMODE:
  case FLSHMGMT_GET_FTMSOFTWAREVERSION:
    return answerRecord(unit, request, argument);
  default:
    return -ENOTTY;
  }
}

std::string record(unsigned long request, const void* argument) {
  if (argument == nullptr)
    return {};
  if (request == FLSHMGMT_GET_FTMSOFTWAREVERSION) {
    const auto* const version = static_cast<const char*>(argument);
    return std::string(version, strnlen(version, ftmSoftwareVersionSize));
  }
  if (request != FLSHMGMT_GET_BOOTMODE && request != FLSHMGMT_SET_BOOTMODE)
    return {};
  const auto& info = *static_cast<const ST_BOOTMODE_INFO*>(argument);
  char text[80];
  std::snprintf(text, sizeof text, "bValid=%d ux16Bootmode=0x%04x ux16FTMmode=0x%04x", info.bValid, info.ux16Bootmode,
                info.ux16FTMmode);
  return text;
}

void afterwards(Unit& unit, unsigned long request) {
  if (request == FLSHMGMT_REBOOT)
    unit.reboot();
}

} // namespace

const Requests flashRequests{answer, record, afterwards};

} // namespace gateway
