// LEDs and buttons as the test configuration file shows them.
#include "userapps/FTM/FTM_Apis.h"
#include "userapps/FTM/FTM_Tags.h"

namespace {

int showText(const char* section, const char* name, const char* text) {
  ST_XML_ELEMENT* element = GetElmtPtr(TestModeCfgTree(), "TEST_CONFIG", section, name);
  if (element == nullptr)
    return -1;
  SetTextBody(element, text);
  return 0;
}

// An unreadable button, -1, shows as closed.
int showButton(int state, const char* section, const char* name) {
  return showText(section, name, state == 0 ? "OPEN" : "CLOSED");
}

} // namespace

void FtmUpdLedsAndButtons() {
  for (const ST_FTM_LED& led : stFtmLeds)
    FtmAction_LED(getLedState(static_cast<unsigned int>(led.ePoint)), led.pszName);
  FtmUpdRsSw();
  FtmUpdWpsSw();
}

int FtmUpdRsSw() {
  return showButton(getResetButtonBsp(), "RESET_SWITCH", "RESET_SW_STATUS");
}

int FtmUpdWpsSw() {
  return showButton(getWpsButtonBsp(), "WPS_SWITCH", "WPS_SW_STATUS");
}

// An unreadable LED, -1, shows as on.
int FtmAction_LED(int iState, const char* pcaz) {
  return showText("LED", pcaz, iState != 0 ? "ON" : "OFF");
}

int FtmActionSESSION_LED(int iState) {
  return FtmAction_LED(iState, "SESSION_LED");
}

int FtmActionREADY_GREEN_LED(int iState) {
  return FtmAction_LED(iState, "READY_GREEN_LED");
}

int FtmActionREADY_RED_LED(int iState) {
  return FtmAction_LED(iState, "READY_RED_LED");
}

int FtmActionETHER_LED(int iState) {
  return FtmAction_LED(iState, "ETHER_LED");
}

int FtmActionUSB_LED(int iState) {
  return FtmAction_LED(iState, "USB_LED");
}

int FtmActionWPS_LED(int iState) {
  return FtmAction_LED(iState, "WPS_LED");
}

int FtmActionLED_ALL(int iState) {
  return FtmAction_LED(iState, "ALL_LEDS");
}

int FtmActionLED_Blink(const char* pcText) {
  return showText("LED", "ALL_LEDS", pcText);
}
