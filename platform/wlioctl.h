#pragma once
// Requests and records of the wireless driver, issued with SIOCDEVPRIVATE and a struct ifreq whose
// data field points to a wl_ioctl.

#include <cstdint>

/// One driver request. The layout is the driver's.
struct wl_ioctl {
  unsigned int cmd;    ///< an EWirelessRequest value
  void* buf;           ///< data of the request
  unsigned int len;    ///< size of the data in bytes
  std::uint8_t set;    ///< 1 for a request that changes something
  unsigned int used;   ///< bytes read or written
  unsigned int needed; ///< bytes that the answer needs
};

constexpr std::uint32_t WLC_IOCTL_MAGIC = 0x14e46c77;

enum EWirelessRequest : unsigned int {
  WLC_GET_MAGIC = 0,
  WLC_GET_VERSION = 1,
  WLC_GET_MAC = 23,
  WLC_GET_SSID = 25,
  WLC_GET_CHANNEL = 29,
  WLC_GET_COUNTRY = 83,
  WLC_GET_VAR = 262,
  WLC_SET_VAR = 263
};

struct wlc_ssid_t {
  std::uint32_t SSID_len;
  unsigned char SSID[32];
};

struct channel_info_t {
  int hw_channel;
  int target_channel;
  int scan_channel;
};
