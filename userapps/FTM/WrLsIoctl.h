#pragma once
// The radio, asked through the wireless driver's private requests. Any thread that has a store session of its own.
// Operations that return int return 0, or -1 on failure, unless they say otherwise.

#include <cstddef>

#include "platform/wlioctl.h"

struct ifreq;

constexpr std::size_t radioMacTextSize = 20;
constexpr std::size_t radioSsidTextSize = 33; ///< 32 bytes of SSID and a NUL
constexpr std::size_t radioCountryTextSize = 10;

/// What the radio reports.
struct ST_WL_INFO {
  char cMacAddr[radioMacTextSize]; ///< six lower-case hex bytes, joined by colons
  wlc_ssid_t stSSID;
  channel_info_t stChnlInf;
  char cDomain[radioCountryTextSize]; ///< country code
};

/// How far a reading of the radio came: the last field that was read.
enum E_WL_READ { eWL_NOTHING, eWL_MAC, eWL_SSID, eWL_CHANNEL, eWL_COUNTRY };

/// Reads MAC address, SSID, channel and country, up to the first that fails; what was not read stays as it was.
E_WL_READ WL_Read(ST_WL_INFO* pWI, void* pvSession);
/// The same, for a caller that needs all of them.
int WL_Info(ST_WL_INFO* pWI, void* pvSession);
/// MAC address text alone, into `pcMacAddr` (radioMacTextSize bytes).
int WLinfo(void* pvSession, char* pcMacAddr);
/// SSID text alone, into `pcSSID` (radioSsidTextSize bytes).
int WLinfoSSID(void* pvSession, char* pcSSID);
/// Writes the SSID as a text, whatever length the driver gave, into `pcText` (radioSsidTextSize bytes).
void WL_SsidText(const wlc_ssid_t& ssid, char* pcText);

/// Name of the wireless interface in `ifr`, empty when there is none or its driver is not a usable one.
void wl_find(void* pvSession, struct ifreq* ifr);
/// Says on the console and in the system log that there is no wireless interface.
void wl_reportMissing();

// Driver requests. `wl` is the struct ifreq from wl_find(). They return the driver's result, negative on failure.

int wl_get(void* wl, int cmd, void* buf, int len);
int wl_set(void* wl, int cmd, void* buf, int len);
/// One request; a failed one is logged when `errmsg` is set and `cmd` is not 0.
int wlan_ioctl(void* wl, int cmd, void* buf, int len, bool set, bool errmsg);

// Named driver variables; also -1, without a request, when name and value are longer than the driver takes: together
// 256 bytes, or 128 for wl_set_str(); for wl_get_val() 256 each. The name's NUL counts.

int wl_get_val(void* wl, const char* var, void* val, int len);
int wl_set_val(void* wl, const char* var, const void* val, int len);
int wl_set_str(void* wl, const char* var, const void* val, int len);
