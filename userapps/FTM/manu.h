#pragma once
// The download channel that firmware images are passed to. Its steps are empty on this system: a
// channel that stores or burns an image would be built behind these functions. TFTP server task only.

#include <cstdint>

#include "userapps/FTM/TFTPExterns.h"

enum ENUM_OWNER_TYPE { OWNER_NONE = -1, OWNER_CPE = 1, OWNER_HTTP = 2, OWNER_EOC = 3, OWNER_TFTP = 4 };

struct ST_HEX_UPGRADE_ATTRIBS {
  unsigned long maxSize;
  unsigned long fileSize; ///< all ones once the last block has come
  unsigned long currentLen;
};

/// What the channel is told about one image transfer.
struct ST_DISC_CHAN_ATTRIBS {
  int index;
  unsigned char* pInputData; ///< 4-byte header, block number in its bytes 2 and 3 (big-endian), then the block's data
  std::uint16_t inLength;    ///< bytes behind pInputData, header included
  Packet* pOutputData; ///< status packet of the channel, zero-filled at first; an ERROR packet aborts the transfer
  ENUM_OWNER_TYPE caller;
  int upgradeVersion;
  ST_HEX_UPGRADE_ATTRIBS hexAttrib;
};

/// Starts an image with its first block.
void DISC_dataFirst(ST_DISC_CHAN_ATTRIBS* attribs);
/// Takes a full block after the first.
void DISC_dataAsm(ST_DISC_CHAN_ATTRIBS* attribs);
/// Takes the last block, which is short.
void DISC_dataFinis(ST_DISC_CHAN_ATTRIBS* attribs);
/// Starts a hex image. Its first block is then passed to DISC_hexAsm() as well.
void DISC_hexFirst(ST_DISC_CHAN_ATTRIBS* attribs);
/// Takes a full block of a hex image.
void DISC_hexAsm(ST_DISC_CHAN_ATTRIBS* attribs);
/// Takes the last block of a hex image, which is short.
void DISC_hexFinis(ST_DISC_CHAN_ATTRIBS* attribs);
/// Burns the hex image that has been taken.
void DISC_burnHexImage();
/// Keeps the watchdog quiet during a long transfer.
void WDOGPetTheDog();
/// Reboots the device after a hex image.
void ReBoot(int iBootOption);
