#pragma once
// The TFTP server task: serves read and write requests, one at a time, to completion.

#include <cstdint>

#include "userapps/FTM/TFTPExterns.h"

enum ENUM_INPUT_FILE_TYPE { OTHER = 0, UPG = 1, HEX = 2 };

constexpr std::size_t maxWrittenFile = 7648; // bytes

/// What the task keeps from one request to the next.
struct TftpTaskState {
  BoardTime reackEnd{0};       ///< until then a repeated last block of a write is answered again
  std::uint16_t lastBlock = 0; ///< last block of the last write, 0 when it failed
};

/// Thread body of the server task.
void* tftp_task(void* NoPassedParms);
/// One round of it: waits for a datagram, a minute at most, and serves it.
void TftpTaskRound(TftpTaskState& state);

/// Answers a read request. Returns 0, or -1 when the file was not sent completely.
int TFTPServerReadRequest(const ReceivedDatagram* pRecvPacket);
/// Takes a file from the station and applies it. Stores the last block received, or 0 after a failure.
/// Returns 0 when the file came completely (also when it was refused then), or -1.
int TFTPServerWriteRequest(const ReceivedDatagram* pRecvPacket, std::uint16_t* last_block_num);
/// Type of a file by the text from the last dot of its name.
ENUM_INPUT_FILE_TYPE checkFileType(const char* pzFileName);
