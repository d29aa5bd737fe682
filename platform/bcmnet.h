#pragma once
// Private requests of the Ethernet driver, issued with a struct ifreq on a control socket. The
// record's data field points to an int that receives the answer.

enum EEthernetRequest : unsigned long {
  SIOCGLINKSTATE = 0x89F1,  ///< link state, 0 when the link is down
  SIOCCURRENTSPEED = 0x8A01 ///< speed in bit/s
};
