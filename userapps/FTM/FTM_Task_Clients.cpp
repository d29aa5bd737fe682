// The table of clients and the thread that ages it.
#include <syslog.h>

#include <cstdio>
#include <cstdlib>

#include "platform/board.h"
#include "userapps/FTM/FTM_Apis.h"
#include "userapps/FTM/FTM_Handles.h"
#include "userapps/FTM/FTM_Task.h"

stMgmtUtilClientInfo g_CurrentConnections[maxClients];
pthread_mutex_t g_connections_mutex = PTHREAD_MUTEX_INITIALIZER;
std::atomic<std::uint16_t> usAcivityTmr{0};

namespace {

constexpr int lockAlreadyHeld = 0;
constexpr useconds_t ageingTick = 1'000'000;

bool isClientOf(const stMgmtUtilClientInfo& client, const sockaddr_in& sender) {
  return client.iTimeOut != 0 && client.ClientAddr.sin_addr.s_addr == sender.sin_addr.s_addr &&
         client.ClientAddr.sin_port == sender.sin_port;
}

stMgmtUtilClientInfo* freeSlot() {
  for (stMgmtUtilClientInfo& client : g_CurrentConnections)
    if (client.iTimeOut == 0)
      return &client;
  return nullptr;
}

/// Closes the client with the least time left, the first of them on a tie.
stMgmtUtilClientInfo* evictClient() {
  stMgmtUtilClientInfo* victim = g_CurrentConnections;
  for (stMgmtUtilClientInfo& client : g_CurrentConnections)
    if (client.iTimeOut < victim->iTimeOut)
      victim = &client;
  CloseClientConnection(victim, lockAlreadyHeld);
  std::printf("Close Old Connection %d\n", static_cast<int>(victim - g_CurrentConnections));
  return victim;
}

void ageClients() {
  const MutexLock lock(g_connections_mutex);
  for (stMgmtUtilClientInfo& client : g_CurrentConnections)
    if (client.iTimeOut != 0 && --client.iTimeOut == 0)
      CloseClientConnection(&client, lockAlreadyHeld);
}

void countInactivity() {
  const int idleSeconds = usAcivityTmr.fetch_add(1, std::memory_order_relaxed) + 1;
  if (idleSeconds < inactivityLimit)
    return;
  FTM_Reboot(0);
  usAcivityTmr.store(0, std::memory_order_relaxed);
}

void closeSlot(stMgmtUtilClientInfo& client) {
  std::free(client.pcData);
  client.pcData = nullptr;
  std::free(client.pszSRec);
  client.pszSRec = nullptr;
  client.iState = eIdle;
  client.iTimeOut = 0;
}

} // namespace

stMgmtUtilClientInfo* GetClientConnection(const void*, std::size_t, sockaddr_in sender) {
  stMgmtUtilClientInfo* client = LookupClientConnection(sender);
  if (client == nullptr)
    client = AddClientConnection(sender);
  if (client == nullptr)
    board_syslog(LOG_ERR, "ERROR - No available connections\n");
  return client;
}

stMgmtUtilClientInfo* LookupClientConnection(sockaddr_in sender) {
  const MutexLock lock(g_connections_mutex);
  for (stMgmtUtilClientInfo& client : g_CurrentConnections) {
    if (!isClientOf(client, sender))
      continue;
    client.iTimeOut = clientLifetime;
    return &client;
  }
  return nullptr;
}

stMgmtUtilClientInfo* AddClientConnection(sockaddr_in sender) {
  const MutexLock lock(g_connections_mutex);
  stMgmtUtilClientInfo* client = freeSlot();
  if (client == nullptr)
    client = evictClient();
  client->iTimeOut = clientLifetime;
  client->ClientAddr = sender;
  client->iState = eIdle;
  return client;
}

void CloseClientConnection(stMgmtUtilClientInfo* client, int lock) {
  if (lock == lockAlreadyHeld)
    return closeSlot(*client);
  const MutexLock held(g_connections_mutex);
  closeSlot(*client);
}

void ClientAgeTick() {
  board_usleep(ageingTick);
  ageClients();
  countInactivity();
}

void* ClientAge(void*) {
  for (;;)
    ClientAgeTick();
}

std::uint32_t* Munge32(const std::uint32_t* guard, std::uint32_t* word) {
  if (guard == nullptr)
    return nullptr;
  *word = __builtin_bswap32(*word);
  return word;
}
