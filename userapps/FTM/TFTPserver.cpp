// The TFTP server task.
#include "userapps/FTM/TFTPserver.h"

#include <syslog.h>

#include <cstring>

#include "platform/board.h"
#include "userapps/FTM/FTM_App.h"

namespace {

constexpr BoardTime reackWindow = 12 * std::chrono::milliseconds(250); // 12 polls of the task
constexpr BoardTime closedWindow{0};
constexpr BoardTime idleWait = std::chrono::minutes(1);

/// DATA outside a transfer is either the last block of the last write, whose answer was lost, or stray.
void answerStrayData(TftpTaskState& state) {
  if (boardNow() >= state.reackEnd) {
    board_syslog(LOG_DEBUG, "TFTP_task: received unexpected data packet\n");
    return;
  }
  state.reackEnd = closedWindow;
  board_syslog(LOG_DEBUG, "TFTP_task: client resent data packet, will resend ack\n");
  if (state.lastBlock != 0)
    TFTPsend_ack(state.lastBlock);
  else
    TFTPsend_error(0, "receive block error");
}

} // namespace

ENUM_INPUT_FILE_TYPE checkFileType(const char* pzFileName) {
  const char* const extension = std::strrchr(pzFileName, '.');
  if (extension == nullptr)
    return OTHER;
  if (std::strcmp(extension, szUPG) == 0)
    return UPG;
  return std::strcmp(extension, szHEX) == 0 ? HEX : OTHER;
}

void TftpTaskRound(TftpTaskState& state) {
  ReceivedDatagram datagram;
  if (!TFTPreceive(datagram, boardNow() + idleWait))
    return;
  switch (TFTPopcode(datagram)) {
  case eWRQ:
    TFTPServerWriteRequest(&datagram, &state.lastBlock);
    state.reackEnd = boardNow() + reackWindow;
    break;
  case eRRQ:
    TFTPServerReadRequest(&datagram);
    state.reackEnd = closedWindow;
    break;
  case eDATA:
    answerStrayData(state);
    break;
  default:
    board_syslog(LOG_DEBUG, "TFTP_task: received invalid opcode\n");
    board_syslog(LOG_ERR, "TFTP_task: received invalid opcode");
  }
}

void* tftp_task(void*) {
  TftpTaskState state;
  for (;;)
    TftpTaskRound(state);
}
