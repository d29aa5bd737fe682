#pragma once
// Requests, records and points of the GPIO driver, "/dev/gpioctrl": LEDs, relays and buttons.

#include <cstdint>

constexpr const char* gpioDevice = "/dev/gpioctrl";

/// Request codes are plain numbers, without size or direction bits.
enum EGpioRequest : unsigned long {
  GPIOCTRL_READIO = 4,       ///< led_gpio_readwrite: point in, data out
  GPIOCTRL_WRITEIO = 5,      ///< led_gpio_readwrite: point and data in
  GPIOCTRL_ENTERFTM = 6,     ///< led_gpio_readwrite: the driver leaves the LEDs to the test station
  GPIOCTRL_EXITFTM = 7,      ///< led_gpio_readwrite: the driver drives the LEDs by itself again
  GPIOCTRL_ALLLEDS_OFF = 11, ///< no argument
  GPIOCTRL_ALLLEDS_ON = 12   ///< no argument
};

struct led_gpio_readwrite {
  std::int32_t iUserIOPoint; ///< an eUserIOPoint value
  std::int32_t iData;        ///< 0: off or open; otherwise on or closed
};

/// The points that the service uses.
enum eUserIOPoint : std::int32_t {
  eInvalidLed = 0,
  ePowerGrnLed = 1,
  eDSLGrnLed = 3,
  eDSLRedLed = 4,
  eUSBGrnLed = 8,
  eEth0GrnLed = 12,
  eVoiceRly1 = 22,
  eVoiceRly2 = 23,
  eResetSwInput = 32,
  eDSLPair = 41,
  eECLed = 42,
  eECSetupSwInput = 43,
  eMaxUserIOPoint = 73
};
