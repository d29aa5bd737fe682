// Read requests: the text of a virtual file, block by block.
#include <syslog.h>

#include <cstdio>
#include <cstring>

#include "platform/board.h"
#include "userapps/FTM/FTM_App.h"
#include "userapps/FTM/TFTPserver.h"

namespace {

struct Block {
  const char* data;
  std::uint16_t length;
  std::uint16_t number; // wraps after 65535
};

void sendRefusal(const ST_TFTP_ERROR* error) {
  const bool hasText = error != nullptr && error->psErrMsg != nullptr;
  TFTPsend_error(error != nullptr ? error->usErrorCode : 0, hasText ? error->psErrMsg : "");
  board_syslog(LOG_DEBUG, "read(): invalid filename\n");
  board_syslog(LOG_ERR, "TFTP read: invalid filename");
}

void rejectAck(std::uint16_t expected, std::uint16_t acknowledged) {
  char text[tftpBlockSize];
  std::snprintf(text, sizeof text, "expected ACK for block %d - got block %d\n", expected, acknowledged);
  std::printf("read(): %s", text);
  TFTPsend_error(0, text);
}

/// Whether a block may be sent again after this answer; a repeated acknowledgement is counted.
bool isWorthResending(int result, const Block& block, std::uint16_t acknowledged) {
  if (result == tftpTimedOut)
    return true;
  if (acknowledged != static_cast<std::uint16_t>(block.number - 1))
    return false;
  TFTPcountSeqError();
  return true;
}

void reportFailedBlock(int result, const Block& block, std::uint16_t acknowledged) {
  if (result == tftpTimedOut)
    std::fputs("read(): error response to resent packet; abort send", stdout);
  else
    rejectAck(block.number, acknowledged);
}

/// Sends a block until it is acknowledged, at most twice.
bool deliver(const Block& block) {
  for (bool mayResend = true;; mayResend = false) {
    std::uint16_t acknowledged = 0;
    TFTPsend_data(block.data, block.length, block.number);
    const int result = TFTPget_ack(&acknowledged);
    if (result == tftpReceived && acknowledged == block.number)
      return true;
    if (!mayResend || !isWorthResending(result, block, acknowledged)) {
      reportFailedBlock(result, block, acknowledged);
      return false;
    }
  }
}

} // namespace

int TFTPServerReadRequest(const ReceivedDatagram* pRecvPacket) {
  ST_TFTP_ERROR* error = nullptr;
  const char* text = getFtmXml(TFTPfileName(*pRecvPacket), &error);
  if (text == nullptr) {
    sendRefusal(error);
    return -1;
  }
  Block block{text, 0, 0};
  do { // a text of whole blocks ends with an empty one
    block.data += block.length;
    block.length = static_cast<std::uint16_t>(strnlen(block.data, tftpBlockSize));
    ++block.number;
    if (!deliver(block))
      return -1;
  } while (block.length == tftpBlockSize);
  return 0;
}
