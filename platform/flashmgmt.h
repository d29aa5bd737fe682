#pragma once
// Requests and records of the flash-management driver, "/dev/flshmgmt".

#include <cstdint>

constexpr const char* flashManagementDevice = "/dev/flshmgmt";

/// Request codes are plain numbers, without size or direction bits.
enum EFlashRequest : unsigned long {
  FLSHMGMT_REBOOT = 7,                 ///< reboot now; no argument
  FLSHMGMT_PREPARE_REBOOT = 30,        ///< next boot is a normal one; no argument
  FLSHMGMT_PREPARE_SAFEBOOT = 31,      ///< next boot is into the safe-boot image; no argument
  FLSHMGMT_GET_BOOTMODE = 38,          ///< fills an ST_BOOTMODE_INFO
  FLSHMGMT_SET_BOOTMODE = 39,          ///< applies an ST_BOOTMODE_INFO
  FLSHMGMT_GET_FTMSOFTWAREVERSION = 40 ///< fills a text of ftmSoftwareVersionSize bytes
};

constexpr int ftmSoftwareVersionSize = 32;

struct stBootmodeInfo {
  int bValid; ///< sent as 0
  std::uint16_t ux16Bootmode;
  std::uint16_t ux16FTMmode; ///< the low byte is the boot delay
};
using ST_BOOTMODE_INFO = stBootmodeInfo;
