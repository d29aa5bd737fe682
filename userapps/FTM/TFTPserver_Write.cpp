// Write requests: a file taken into memory block by block and applied, or passed on as an image.
#include <arpa/inet.h>
#include <syslog.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "platform/board.h"
#include "userapps/FTM/FTM_App.h"
#include "userapps/FTM/FTM_Handles.h"
#include "userapps/FTM/TFTPserver.h"
#include "userapps/FTM/manu.h"

namespace {

constexpr std::size_t writeBufferSize = 8160; // the largest file, and one more block
static_assert(writeBufferSize == maxWrittenFile + tftpBlockSize);
constexpr std::size_t imageHeaderSize = 4;
constexpr std::uint16_t firstBlock = 1;
constexpr int toleratedTimeouts = 3;
constexpr std::uint16_t allocationExceeded = 3; // TFTP error code
constexpr useconds_t burnPause = 3'000'000;

enum class EStep { more, done, failed };

/// The download channel's steps for one type of image.
struct ImageSteps {
  const char* name;
  void (*first)(ST_DISC_CHAN_ATTRIBS*);
  void (*assemble)(ST_DISC_CHAN_ATTRIBS*);
  void (*finish)(ST_DISC_CHAN_ATTRIBS*);
  void (*succeeded)();
};

void startHex(ST_DISC_CHAN_ATTRIBS* channel) {
  DISC_hexFirst(channel);
  DISC_hexAsm(channel);
}

void finishHex(ST_DISC_CHAN_ATTRIBS* channel) {
  channel->hexAttrib.fileSize = ~0UL;
  DISC_hexFinis(channel);
}

void burnHex() {
  DISC_burnHexImage();
  board_usleep(burnPause);
  ReBoot(0);
}

constexpr ImageSteps upgSteps = {"upg", DISC_dataFirst, DISC_dataAsm, DISC_dataFinis, [] {}};
constexpr ImageSteps hexSteps = {"hex", startHex, DISC_hexAsm, finishHex, burnHex};

using WriteBuffer = std::unique_ptr<unsigned char, HeapFree>;

struct WriteTransfer {
  const char* fileName;
  WriteBuffer buffer;
  const ImageSteps* image;    ///< null for a file that is applied
  std::size_t position;       ///< where in the buffer the next block goes
  std::uint16_t received = 0; ///< block number
  std::uint16_t expected = 0; ///< block number
  int dataLength = tftpBlockSize;
  int timeouts = 0; ///< in a row
  Packet status{};
  ST_DISC_CHAN_ATTRIBS channel{};
};

const ImageSteps* imageSteps(ENUM_INPUT_FILE_TYPE type) {
  if (type == OTHER)
    return nullptr;
  return type == UPG ? &upgSteps : &hexSteps;
}

__attribute__((format(printf, 1, 2))) void sendError(const char* format, ...) {
  char text[tftpBlockSize];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  TFTPsend_error(0, text);
}

/// After the last block. An image of one block gets no final acknowledgement, on purpose.
EStep finish(WriteTransfer& transfer) {
  if (transfer.image != nullptr)
    return EStep::done;
  transfer.buffer.get()[transfer.position] = '\0';
  const ST_TFTP_ERROR* const error = putFtmXml(reinterpret_cast<char*>(transfer.buffer.get()), transfer.fileName);
  if (error == nullptr)
    TFTPsend_ack(transfer.received);
  else
    TFTPsend_error(error->usErrorCode, error->psErrMsg != nullptr ? error->psErrMsg : "");
  return EStep::done;
}

/// No data packet came. The last acknowledgement is sent again after a time-out that is tolerated.
EStep handleMissingData(WriteTransfer& transfer, int result) {
  board_syslog(LOG_DEBUG, "write(): error getting data packet from expected block %d\n", transfer.expected);
  if (result == tftpTimedOut && transfer.timeouts < toleratedTimeouts) {
    ++transfer.timeouts;
    --transfer.expected;
    return EStep::more;
  }
  if (result == tftpTimedOut)
    sendError("Timed out on data packet, expected block = %d", transfer.expected);
  sendError("Bad data packet, expected block = %d", transfer.expected);
  return EStep::failed;
}

/// A repeated block is acknowledged again; any other unexpected block ends the transfer.
EStep handleWrongBlock(WriteTransfer& transfer) {
  board_syslog(LOG_DEBUG, "write(): expected data for block %d - got block %d\n", transfer.expected, transfer.received);
  const auto previous = static_cast<std::uint16_t>(transfer.expected - 1);
  if (transfer.received != previous) {
    sendError("expected block %d - received block %d", transfer.expected, transfer.received);
    return EStep::failed;
  }
  transfer.expected = previous;
  transfer.dataLength = tftpBlockSize; // only the block that is due may end the file, however short a repeated one is
  TFTPcountSeqError();
  return EStep::more;
}

EStep takeFileBlock(WriteTransfer& transfer) {
  transfer.position += static_cast<std::size_t>(transfer.dataLength);
  if (transfer.position <= maxWrittenFile)
    return EStep::more;
  TFTPsend_error(allocationExceeded, "file allocation size exceeded");
  board_syslog(LOG_DEBUG, "write(): file allocation size exceeded\n");
  return EStep::failed;
}

bool hasAborted(const WriteTransfer& transfer) {
  return transfer.status.OpCode == htons(eERROR);
}

EStep finishImage(WriteTransfer& transfer) {
  TFTPsend_ack(transfer.received);
  transfer.image->finish(&transfer.channel);
  if (hasAborted(transfer))
    return EStep::done;
  // "upg" for hex images too, on purpose.
  board_syslog(LOG_DEBUG, "write(): upg downloaded successfully. Last block = %d\n", transfer.received);
  transfer.image->succeeded();
  return EStep::done;
}

EStep abortImage(const WriteTransfer& transfer) {
  char text[tftpBlockSize];
  std::snprintf(text, sizeof text, "%.*s", static_cast<int>(sizeof text), transfer.status.UN.ERROR_PKT.ErrorMsg);
  board_syslog(LOG_DEBUG, "write(): upg download aborted, error in block %d\n", transfer.received);
  board_syslog(LOG_DEBUG, "         %s\n", text);
  TFTPsend_error(0, text);
  return EStep::failed;
}

void startImage(WriteTransfer& transfer) {
  transfer.image->first(&transfer.channel);
  board_syslog(LOG_DEBUG, "write(): %s download started.\n", transfer.image->name);
}

void continueImage(WriteTransfer& transfer) {
  WDOGPetTheDog();
  transfer.image->assemble(&transfer.channel);
}

EStep takeImageBlock(WriteTransfer& transfer) {
  unsigned char* const header = transfer.buffer.get();
  header[2] = static_cast<unsigned char>(transfer.received >> 8);
  header[3] = static_cast<unsigned char>(transfer.received);
  transfer.channel.inLength = static_cast<std::uint16_t>(transfer.dataLength + static_cast<int>(imageHeaderSize));
  const bool isFirst = transfer.received == firstBlock;
  if (!isFirst && transfer.dataLength < static_cast<int>(tftpBlockSize))
    return finishImage(transfer);
  isFirst ? startImage(transfer) : continueImage(transfer);
  return hasAborted(transfer) ? abortImage(transfer) : EStep::more;
}

/// Acknowledges the block before and takes the next one.
EStep nextBlock(WriteTransfer& transfer) {
  if (transfer.dataLength != static_cast<int>(tftpBlockSize))
    return finish(transfer);
  TFTPsend_ack(transfer.received);
  ++transfer.expected;
  char* const destination = reinterpret_cast<char*>(transfer.buffer.get()) + transfer.position;
  const int result = TFTPget_data(destination, &transfer.dataLength, &transfer.received);
  if (result != tftpReceived)
    return handleMissingData(transfer, result);
  if (transfer.dataLength > static_cast<int>(tftpBlockSize)) {
    sendError("data_len = %d", transfer.dataLength);
    board_syslog(LOG_DEBUG, "write(): data packet size too big\n");
    return EStep::failed;
  }
  if (transfer.received != transfer.expected)
    return handleWrongBlock(transfer);
  transfer.timeouts = 0;
  return transfer.image != nullptr ? takeImageBlock(transfer) : takeFileBlock(transfer);
}

EStep receiveFile(WriteTransfer& transfer) {
  if (transfer.buffer == nullptr) { // out of memory: for the station, the same as a file that is too big
    TFTPsend_error(allocationExceeded, "file allocation size exceeded");
    return EStep::failed;
  }
  EStep step = EStep::more;
  while (step == EStep::more)
    step = nextBlock(transfer);
  return step;
}

} // namespace

int TFTPServerWriteRequest(const ReceivedDatagram* pRecvPacket, std::uint16_t* last_block_num) {
  const char* const fileName = TFTPfileName(*pRecvPacket);
  const ImageSteps* const image = imageSteps(checkFileType(fileName));
  WriteTransfer transfer{.fileName = fileName,
                         .buffer = WriteBuffer(static_cast<unsigned char*>(std::calloc(1, writeBufferSize))),
                         .image = image,
                         .position = image != nullptr ? imageHeaderSize : 0};
  transfer.channel.pInputData = transfer.buffer.get();
  transfer.channel.pOutputData = &transfer.status;
  transfer.channel.caller = OWNER_TFTP;
  transfer.channel.upgradeVersion = 1;
  *last_block_num = 0;
  if (receiveFile(transfer) == EStep::failed)
    return -1;
  *last_block_num = transfer.received;
  return 0;
}
