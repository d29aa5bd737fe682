// The queue of received datagrams between the receiving thread and the TFTP server task, and sending.
#include <sys/socket.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/board.h"
#include "userapps/FTM/FTM_Handles.h"
#include "userapps/FTM/FTM_Task.h"

// The head is atomic so that the test for an empty queue needs no lock.
std::atomic<ST_FTM_TFTP_PACKET*> pstTFTPPacket{nullptr};
pthread_mutex_t g_rxbuf_mutex = PTHREAD_MUTEX_INITIALIZER;

namespace {

/// A condition variable on the monotonic clock, never destroyed: exit() may run while threads wait.
struct MonotonicCondition {
  MonotonicCondition() {
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    pthread_cond_init(&condition, &attributes);
    pthread_condattr_destroy(&attributes);
  }
  pthread_cond_t condition;
};

MonotonicCondition arrival;
ST_FTM_TFTP_PACKET* queueTail; // guarded by g_rxbuf_mutex; a burst is queued without walking the list

bool isQueueEmpty() {
  return pstTFTPPacket.load(std::memory_order_relaxed) == nullptr;
}

void appendToQueue(ST_FTM_TFTP_PACKET* entry) {
  const MutexLock lock(g_rxbuf_mutex);
  if (isQueueEmpty())
    pstTFTPPacket.store(entry, std::memory_order_relaxed);
  else
    queueTail->pstTFTPPacket = entry;
  queueTail = entry;
}

timespec toTimespec(BoardTime time) {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time);
  return {.tv_sec = static_cast<time_t>(seconds.count()), .tv_nsec = static_cast<long>((time - seconds).count())};
}

} // namespace

void FtmClientSaveData(const void* buffer, std::uint16_t length) {
  auto* const entry = static_cast<ST_FTM_TFTP_PACKET*>(std::calloc(1, sizeof(ST_FTM_TFTP_PACKET)));
  if (entry == nullptr) {
    std::fputs("ftm_ProcessRcvTFTPData: Unable to allocate buffer", stdout);
    return;
  }
  entry->usLength = std::min<std::uint16_t>(length, queuedDatagramSize);
  std::memcpy(entry->aucBuffer, buffer, entry->usLength);
  appendToQueue(entry);
  pthread_cond_signal(&arrival.condition);
}

std::uint16_t recvTftp(void* buffer) {
  if (buffer == nullptr || isQueueEmpty())
    return 0;
  const MutexLock lock(g_rxbuf_mutex);
  ST_FTM_TFTP_PACKET* const head = pstTFTPPacket.load(std::memory_order_relaxed);
  const std::uint16_t length = head->usLength;
  std::memcpy(buffer, head->aucBuffer, length);
  pstTFTPPacket.store(head->pstTFTPPacket, std::memory_order_relaxed);
  std::free(head);
  usAcivityTmr.store(0, std::memory_order_relaxed);
  return length;
}

BoardTime boardNow() {
  timespec now;
  board_clock_gettime(&now);
  return std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
}

// This stands for the sleeps between two looks at the queue. It may end before such a sleep would:
// whoever waits has nothing else to do, and a station that waits for each of our answers hundreds of
// times per unit should not wait for a sleep as well. When nothing comes, the time is the same.
bool awaitTftp(BoardTime deadline) {
  const timespec end = toTimespec(deadline);
  const MutexLock lock(g_rxbuf_mutex);
  while (boardNow() < deadline) {
    if (!isQueueEmpty())
      return true;
    board_cond_timedwait(&arrival.condition, &g_rxbuf_mutex, &end);
  }
  return false;
}

ssize_t sendTftp(const void* buffer, std::size_t length) {
  const stMgmtUtilClientInfo* const client = pClient.load(std::memory_order_relaxed);
  if (client == nullptr)
    return -1;
  sockaddr_in address;
  {
    const MutexLock lock(g_connections_mutex);
    address = client->ClientAddr;
  }
  return SendResponse(servSock, address, buffer, length);
}

ssize_t SendResponse(int socket, const sockaddr_in& address, const void* buffer, std::size_t length) {
  return sendto(socket, buffer, length, 0, reinterpret_cast<const sockaddr*>(&address), sizeof address);
}
