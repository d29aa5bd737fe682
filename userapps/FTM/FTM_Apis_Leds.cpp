#include <syslog.h>

#include <cstdio>

#include "platform/gpioctrl.h"
#include "userapps/FTM/FTM_Apis.h"
#include "userapps/FTM/FTM_Handles.h"

namespace {

int leaveTestMode(const Descriptor& gpio, led_gpio_readwrite& point) {
  if (board_ioctl(gpio.get(), GPIOCTRL_EXITFTM, &point) < 0) {
    FTM_ReportDevice("GPIOCTRL_EXITFTM ioctl failed");
    return -1;
  }
  return 0;
}

int enterTestMode(const Descriptor& gpio, led_gpio_readwrite& point) {
  if (board_ioctl(gpio.get(), GPIOCTRL_ENTERFTM, &point) < 0) {
    FTM_ReportDevice("GPIOCTRL_ENTERFTM ioctl failed");
    return -1;
  }
  return 0;
}

int switchAllLeds(const Descriptor& gpio, bool on) {
  const unsigned long request = on ? GPIOCTRL_ALLLEDS_ON : GPIOCTRL_ALLLEDS_OFF;
  const int result = board_ioctl(gpio.get(), request, nullptr);
  std::printf("ioctl  iGpioCtl= %d\n", static_cast<int>(request));
  return result;
}

// What is written goes by what the caller asked for: the driver has had the record, and may have changed it.
int writePoint(const Descriptor& gpio, unsigned int led, unsigned int setting, led_gpio_readwrite& point) {
  const int result =
      led == allLedsPoint ? switchAllLeds(gpio, setting != 0) : board_ioctl(gpio.get(), GPIOCTRL_WRITEIO, &point);
  if (result < 0) {
    FTM_ReportDevice("GPIOCTRL_WRITEIO ioctl failed");
    return -1;
  }
  return 0;
}

} // namespace

void FTM_ReportDevice(const char* pszMessage) {
  board_syslog(LOG_ERR, "%s", pszMessage);
  std::printf("%s\n", pszMessage);
}

int ledTest(unsigned int iLed, unsigned int iSetting) {
  std::printf("eUserIOPoint = %d\n", static_cast<int>(iLed));
  const Descriptor gpio = openDevice(gpioDevice);
  if (!gpio.isOpen()) {
    FTM_ReportDevice("Cannot open gpio driver");
    return -1;
  }
  led_gpio_readwrite point{static_cast<std::int32_t>(iLed), static_cast<std::int32_t>(iSetting)};
  if (iSetting == leaveTestSetting)
    return leaveTestMode(gpio, point);
  if (enterTestMode(gpio, point) != 0)
    return -1;
  return writePoint(gpio, iLed, iSetting, point);
}

int getLedState(unsigned int led) {
  const Descriptor gpio = openDevice(gpioDevice);
  if (!gpio.isOpen()) {
    board_syslog(LOG_ERR, "Cannot open gpio driver");
    return -1;
  }
  led_gpio_readwrite point{static_cast<std::int32_t>(led), 0};
  if (board_ioctl(gpio.get(), GPIOCTRL_READIO, &point) < 0) {
    board_syslog(LOG_ERR, "GPIOCTRL_READIO ioctl failed");
    return -1;
  }
  return point.iData;
}

int getResetButtonBsp() {
  return getLedState(eResetSwInput);
}

int getWpsButtonBsp() {
  return getLedState(eECSetupSwInput);
}

int ledTestCM(void* pvSession, const char* pszColName, const char* pszValue) {
  return ftm_CMwrite_var(pvSession, "LedTable", pszColName, 0, pszValue);
}

int FtmMocaAction_LED(const char*, const char*) {
  return -1;
}

int MocaLedSetCtl(unsigned int, unsigned int, unsigned int) {
  return -1;
}
