// The gateway's drivers for a test on the gateway's program, loaded in front of the C library: they answer from memory.
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdarg>
#include <cstring>
#include <mutex>
#include <string_view>

#include "platform/adsldrv.h"
#include "platform/flashmgmt.h"
#include "platform/gpioctrl.h"

namespace {

constexpr const char* standIn = "/dev/null"; // what a descriptor of a driver is open on
constexpr std::string_view drivers[] = {flashManagementDevice, gpioDevice, adslDevice};
constexpr char imageVersion[ftmSoftwareVersionSize] = "DEVICE 3.4";

std::mutex driverMutex;
ST_BOOTMODE_INFO bootMode{1, 0xFFFF, 0xFFFF};
std::int32_t points[eMaxUserIOPoint + 1];

int openFile(const char* path, int flags, mode_t mode) {
  for (const std::string_view driver : drivers)
    if (driver == path)
      return static_cast<int>(syscall(SYS_openat, AT_FDCWD, standIn, flags, 0));
  return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

int readWritePoint(unsigned long request, led_gpio_readwrite& point) {
  if (point.iUserIOPoint < 0 || point.iUserIOPoint > eMaxUserIOPoint)
    return -1;
  if (request == GPIOCTRL_READIO)
    point.iData = points[point.iUserIOPoint];
  else
    points[point.iUserIOPoint] = point.iData;
  return 0;
}

int switchLeds(bool on) {
  for (std::int32_t& point : points)
    point = on ? 1 : 0;
  return 0;
}

int answer(int descriptor, unsigned long request, void* argument) {
  const std::lock_guard lock(driverMutex);
  switch (request) {
  case GPIOCTRL_READIO:
  case GPIOCTRL_WRITEIO:
    return readWritePoint(request, *static_cast<led_gpio_readwrite*>(argument));
  case GPIOCTRL_ALLLEDS_OFF:
  case GPIOCTRL_ALLLEDS_ON:
    return switchLeds(request == GPIOCTRL_ALLLEDS_ON);
  case GPIOCTRL_ENTERFTM:
  case GPIOCTRL_EXITFTM:
    return 0;
  case FLSHMGMT_GET_BOOTMODE:
    std::memcpy(argument, &bootMode, sizeof bootMode);
    return 0;
  case FLSHMGMT_SET_BOOTMODE:
    std::memcpy(&bootMode, argument, sizeof bootMode);
    return 0;
  case FLSHMGMT_GET_FTMSOFTWAREVERSION:
    std::memcpy(argument, imageVersion, sizeof imageVersion);
    return 0;
  default:
    return static_cast<int>(syscall(SYS_ioctl, descriptor, request, argument));
  }
}

} // namespace

// The names of the C library's functions, which its own headers may define inline.
extern "C" {
int driversOpen(const char* path, int flags, ...) asm("open");
int driversOpen64(const char* path, int flags, ...) asm("open64");
int driversOpenFortified(const char* path, int flags) asm("__open_2");
int driversOpenFortified64(const char* path, int flags) asm("__open64_2");
int driversIoctl(int descriptor, unsigned long request, ...) asm("ioctl");
}

int driversOpen(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const auto mode = (flags & O_CREAT) != 0 ? static_cast<mode_t>(va_arg(arguments, int)) : 0;
  va_end(arguments);
  return openFile(path, flags, mode);
}

int driversOpen64(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const auto mode = (flags & O_CREAT) != 0 ? static_cast<mode_t>(va_arg(arguments, int)) : 0;
  va_end(arguments);
  return openFile(path, flags, mode);
}

int driversOpenFortified(const char* path, int flags) {
  return openFile(path, flags, 0);
}

int driversOpenFortified64(const char* path, int flags) {
  return openFile(path, flags, 0);
}

int driversIoctl(int descriptor, unsigned long request, ...) {
  va_list arguments;
  va_start(arguments, request);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  return answer(descriptor, request, argument);
}
