#pragma once
// Requests of the ADSL driver. Both take one signed 32-bit status word, into which the driver writes
// a non-zero value when it refuses the request.

constexpr const char* adslDevicePrefix = "/dev/bcmadsl"; // followed by the unit number
constexpr const char* adslDevice = "/dev/bcmadsl0";      // the gateway's one line

enum EAdslRequest : unsigned long { ADSLIOCTL_CONNECTION_START = 0xC004D003, ADSLIOCTL_CONNECTION_STOP = 0x4004D004 };
