#pragma once
// The TFTP packet and the exchange primitives. All of them run on the TFTP server task.

#include <cstddef>
#include <cstdint>

#include "userapps/FTM/FTM_Task.h"

constexpr std::size_t tftpBlockSize = 512;

enum ETftpOpcode : std::uint16_t { eRRQ = 1, eWRQ = 2, eDATA = 3, eACK = 4, eERROR = 5 };

/// A packet as it stands on the wire: every 16-bit field is in network byte order.
struct Packet {
  std::uint16_t OpCode;
  union {
    struct {
      char FileAndMode[tftpBlockSize];
    } RQ_PKT;
    struct {
      std::uint16_t BlockNum;
      char Data[tftpBlockSize];
    } DATA_PKT;
    struct {
      std::uint16_t AckBlockNum;
    } ACK_PKT;
    struct {
      std::uint16_t ErrorCode;
      char ErrorMsg[tftpBlockSize];
    } ERROR_PKT;
  } UN;
};
constexpr std::size_t tftpHeaderSize = 4;
static_assert(sizeof(Packet) == tftpHeaderSize + tftpBlockSize);

/// A datagram taken from the receive queue. Behind its last byte stands a NUL, so that a file name
/// without a terminator ends with the datagram.
struct ReceivedDatagram {
  unsigned char bytes[queuedDatagramSize + 1];
  std::uint16_t length;
};

/// Results of the wait primitives.
constexpr int tftpReceived = 0;
constexpr int tftpUnwanted = -1;
constexpr int tftpTimedOut = -2;

extern Packet SendPkt;          ///< the packet that every sender builds its datagram in
extern int ServerBlockSeqError; ///< duplicate blocks and acknowledgements tolerated since start

/// Counts one of them.
void TFTPcountSeqError();

/// Opcode of a datagram; 0, which no packet has, when it is too short for one.
std::uint16_t TFTPopcode(const ReceivedDatagram& datagram);
/// File name of a request, ended by NUL.
const char* TFTPfileName(const ReceivedDatagram& datagram);

/// Sends ACK of a block. Always 0.
int TFTPsend_ack(std::uint16_t block);
/// Sends `length` (0 to 512) bytes as a block. Always 0.
int TFTPsend_data(const char* data_ptr, std::uint16_t length, std::uint16_t block);
/// Sends ERROR; a message longer than the packet holds is cut.
void TFTPsend_error(std::uint16_t errcode, const char* errmsg);

/// Waits for a datagram and takes it. Returns false once `deadline` has come.
bool TFTPreceive(ReceivedDatagram& datagram, BoardTime deadline);
/// Waits up to 301 x 10 ms for DATA. Stores its data (at most 512 bytes), its length as received and
/// its block number. Returns tftpReceived, tftpUnwanted or tftpTimedOut.
int TFTPget_data(char* data_ptr, int* len_ptr, std::uint16_t* blk_ptr);
/// Waits up to 13 x 250 ms for ACK, passing over anything else. Returns tftpReceived or tftpTimedOut.
int TFTPget_ack(std::uint16_t* blk_ptr);
