#pragma once
// The service core: start-up, the client table with its ageing thread, and the queue of received
// datagrams between the receiving thread and the TFTP server task.

#include <pthread.h>
#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>

#include "platform/mgmtutil.h"

constexpr std::size_t maxClients = 100;
constexpr std::uint32_t clientLifetime = 120;  // seconds
constexpr std::uint16_t inactivityLimit = 600; // seconds
constexpr std::size_t maxDatagram = 516;       // a TFTP header and a full block
constexpr std::size_t queuedDatagramSize = 700;

/// Time on the board's clock.
using BoardTime = std::chrono::nanoseconds;

/// One queued datagram.
struct ST_FTM_TFTP_PACKET {
  std::uint16_t usLength;
  unsigned char aucBuffer[queuedDatagramSize];
  ST_FTM_TFTP_PACKET* pstTFTPPacket; ///< the next one, null at the tail
};

extern int servSock;                               ///< the UDP socket
extern std::atomic<stMgmtUtilClientInfo*> pClient; ///< slot of the sender of the newest datagram
extern void* pvSession;                            ///< store session of the shutdown handshake
extern bool bNESDShutdownCalled;
extern bool bNESDShutdownComplete;
extern pthread_t g_timeout_thread_id;
extern pthread_t sttftp_taskThread;
extern pthread_t WrLsTaskThread;
extern int iNeedByteswap;
extern int hLogServer;

extern stMgmtUtilClientInfo g_CurrentConnections[maxClients];
extern pthread_mutex_t g_connections_mutex;            ///< guards g_CurrentConnections
extern std::atomic<ST_FTM_TFTP_PACKET*> pstTFTPPacket; ///< head of the receive queue
extern pthread_mutex_t g_rxbuf_mutex;                  ///< guards the receive queue
extern std::atomic<std::uint16_t> usAcivityTmr;        ///< seconds without a consumed datagram

// Start-up. Main thread.

/// Body of main(): starts the service and receives for ever.
[[noreturn]] void FTM_Main();
/// Starts the worker threads, binds UDP port 69 and removes left-over files. Ends the process with
/// status 255 when a thread can't be started or the port can't be had.
void FtmStartUp();
/// Receives one datagram, attributes it to a client and queues it. Ends the process with status 255
/// when receiving fails.
void FtmReceive();
/// Logs `errorMessage`, itself the format string, at LOG_ERR and ends the process with status 255.
[[noreturn]] void DieWithError(const char* errorMessage);

// Shutdown of the device's non-essential applications. One thread, the same for all three, which owns
// the store session of this handshake.

/// Asks the rest of the device to shut down its non-essential applications. Returns 1 when that was
/// already done, else the store's result of the request.
int setNEShutdown();
/// Waits for the answer to setNEShutdown(). Returns non-zero.
int waitForNEShutdown();
/// Store listener for that answer.
void non_essential_app_shutdown(void* session, const char* subject, const char* body);

// Client table. Any thread.

/// Slot of a sender, looked up or newly assigned.
stMgmtUtilClientInfo* GetClientConnection(const void* datagram, std::size_t length, sockaddr_in sender);
/// Slot of a known sender with its life renewed, or null.
stMgmtUtilClientInfo* LookupClientConnection(sockaddr_in sender);
/// Assigns a slot, taking over the one with the least time left when none is free. Never null.
stMgmtUtilClientInfo* AddClientConnection(sockaddr_in sender);
/// Frees a slot. `lock` is 0 when the caller holds g_connections_mutex.
void CloseClientConnection(stMgmtUtilClientInfo* client, int lock);
/// One second of the ageing thread: expires clients and counts inactivity.
void ClientAgeTick();
/// Thread body of the ageing thread.
void* ClientAge(void* NoPassedParms);

// Receive queue.

/// Appends a copy of a datagram, cut to queuedDatagramSize bytes. Receiving thread.
void FtmClientSaveData(const void* buffer, std::uint16_t length);
/// Takes the oldest datagram, which counts as activity. Returns its length, or 0 when there is none or
/// `buffer` is null. `buffer` holds queuedDatagramSize bytes. Server task.
std::uint16_t recvTftp(void* buffer);
/// Time on the board's clock. Any thread.
BoardTime boardNow();
/// Waits for a datagram. Returns true when one is queued, false once `deadline` has come. Server task.
bool awaitTftp(BoardTime deadline);
/// Sends to the sender of the newest datagram. Returns the result of sendto(2), or -1 when nobody has
/// sent yet. Server task.
ssize_t sendTftp(const void* buffer, std::size_t length);
/// Sends to an address. Returns the result of sendto(2). Any thread.
ssize_t SendResponse(int socket, const sockaddr_in& address, const void* buffer, std::size_t length);
/// Reverses the bytes of the word behind `word` unless `guard` is null. Returns `word`, or null.
std::uint32_t* Munge32(const std::uint32_t* guard, std::uint32_t* word);
