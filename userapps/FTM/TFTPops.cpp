// The TFTP packet and the exchange primitives.
#include <arpa/inet.h>
#include <syslog.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "platform/board.h"
#include "userapps/FTM/TFTPExterns.h"

Packet SendPkt;
int ServerBlockSeqError;

namespace {

constexpr int ackPolls = 13;
constexpr BoardTime ackPoll = std::chrono::milliseconds(250);
constexpr int dataPolls = 301;
constexpr BoardTime dataPoll = std::chrono::milliseconds(10);

/// 16-bit field of a datagram, zero when it lies beyond the datagram's end.
std::uint16_t fieldAt(const ReceivedDatagram& datagram, std::size_t offset) {
  if (offset + sizeof(std::uint16_t) > datagram.length)
    return 0;
  return static_cast<std::uint16_t>(datagram.bytes[offset] << 8 | datagram.bytes[offset + 1]);
}

std::uint16_t blockOf(const ReceivedDatagram& datagram) {
  return fieldAt(datagram, sizeof(std::uint16_t));
}

/// Whether a packet is of that kind and long enough for its block number.
bool isBlockPacket(const ReceivedDatagram& datagram, ETftpOpcode opcode) {
  return TFTPopcode(datagram) == opcode && datagram.length >= tftpHeaderSize;
}

void reportUnwantedForAck(const ReceivedDatagram& datagram) {
  const std::uint16_t opcode = TFTPopcode(datagram);
  if (opcode == eERROR)
    std::puts("FTM_getAck: expecting ack packet, got error packet");
  else
    std::printf("FTM_getAck: received something other than expected ack packet. OpCode = %d\n", opcode);
}

} // namespace

void TFTPcountSeqError() {
  ServerBlockSeqError = static_cast<int>(static_cast<unsigned int>(ServerBlockSeqError) + 1U); // may wrap
}

std::uint16_t TFTPopcode(const ReceivedDatagram& datagram) {
  return fieldAt(datagram, 0);
}

const char* TFTPfileName(const ReceivedDatagram& datagram) {
  return reinterpret_cast<const char*>(datagram.bytes) + sizeof(std::uint16_t);
}

int TFTPsend_ack(std::uint16_t block) {
  SendPkt.OpCode = htons(eACK);
  SendPkt.UN.ACK_PKT.AckBlockNum = htons(block);
  sendTftp(&SendPkt, tftpHeaderSize);
  return 0;
}

int TFTPsend_data(const char* data_ptr, std::uint16_t length, std::uint16_t block) {
  const std::size_t count = std::min<std::size_t>(length, tftpBlockSize);
  SendPkt.OpCode = htons(eDATA);
  SendPkt.UN.DATA_PKT.BlockNum = htons(block);
  std::memcpy(SendPkt.UN.DATA_PKT.Data, data_ptr, count);
  sendTftp(&SendPkt, tftpHeaderSize + count);
  return 0;
}

void TFTPsend_error(std::uint16_t errcode, const char* errmsg) {
  const std::size_t length = strnlen(errmsg, tftpBlockSize - 1);
  SendPkt.OpCode = htons(eERROR);
  SendPkt.UN.ERROR_PKT.ErrorCode = htons(errcode);
  std::memcpy(SendPkt.UN.ERROR_PKT.ErrorMsg, errmsg, length);
  SendPkt.UN.ERROR_PKT.ErrorMsg[length] = '\0';
  sendTftp(&SendPkt, tftpHeaderSize + length + 1);
}

bool TFTPreceive(ReceivedDatagram& datagram, BoardTime deadline) {
  while (awaitTftp(deadline)) {
    datagram.length = recvTftp(datagram.bytes);
    datagram.bytes[datagram.length] = '\0';
    if (datagram.length != 0)
      return true;
  }
  return false;
}

int TFTPget_data(char* data_ptr, int* len_ptr, std::uint16_t* blk_ptr) {
  ReceivedDatagram datagram;
  if (!TFTPreceive(datagram, boardNow() + dataPolls * dataPoll)) {
    board_syslog(LOG_DEBUG, "FTM_getData: timeout waiting for data packet\n");
    return tftpTimedOut;
  }
  if (TFTPopcode(datagram) == eERROR)
    board_syslog(LOG_DEBUG, "FTM_getData: expecting data packet, got error packet\n");
  if (!isBlockPacket(datagram, eDATA))
    return tftpUnwanted;
  const std::size_t length = datagram.length - tftpHeaderSize;
  *blk_ptr = blockOf(datagram);
  *len_ptr = static_cast<int>(length);
  std::memcpy(data_ptr, datagram.bytes + tftpHeaderSize, std::min(length, tftpBlockSize));
  return tftpReceived;
}

int TFTPget_ack(std::uint16_t* blk_ptr) {
  const BoardTime deadline = boardNow() + ackPolls * ackPoll;
  ReceivedDatagram datagram;
  while (TFTPreceive(datagram, deadline)) {
    if (isBlockPacket(datagram, eACK)) {
      *blk_ptr = blockOf(datagram);
      return tftpReceived;
    }
    reportUnwantedForAck(datagram);
  }
  std::printf("FTM_getAck: ack packet timeout! timeoutCntr= %d\n", ackPolls);
  return tftpTimedOut;
}
