#pragma once
// Rows of the journal, and names of faults, as the tests of device operations write them.

#include <string>

#include "platform/adsldrv.h"
#include "platform/gpioctrl.h"

/// What ends the row of a request that a fault made fail.
inline const std::string failed = " failed: EIO";

inline std::string gpioRequest(EGpioRequest request) {
  return "request /dev/gpioctrl " + std::to_string(request);
}
inline std::string gpioRequest(EGpioRequest request, int point, int data) {
  return gpioRequest(request) + " point=" + std::to_string(point) + " data=" + std::to_string(data);
}

inline std::string adslRequestNumber(EAdslRequest request) {
  return request == ADSLIOCTL_CONNECTION_STOP ? "0x4004d004" : "0xc004d003";
}
inline std::string adslRequest(EAdslRequest request, int status) {
  return "request /dev/bcmadsl0 " + adslRequestNumber(request) + " status=" + std::to_string(status);
}

inline std::string errorLine(const std::string& text) {
  return "log err " + text;
}

// Faults.

inline const std::string noGpio = "open /dev/gpioctrl";
inline std::string gpioFault(EGpioRequest request) {
  return "request /dev/gpioctrl " + std::to_string(request);
}

inline const std::string noAdsl = "open /dev/bcmadsl0";
inline std::string adslFault(EAdslRequest request) {
  return "request /dev/bcmadsl0 " + adslRequestNumber(request);
}
/// The request goes through, but the driver writes a non-zero status.
inline std::string adslRefusal(EAdslRequest request) {
  return "refuse /dev/bcmadsl0 " + adslRequestNumber(request);
}

inline const std::string noSession = "session";
inline std::string noTable(const std::string& table) {
  return "table " + table;
}

inline const std::string noUsbStorage = "file /proc/scsi/scsi";
