// Start-up of the service and the receiving loop of its main thread.
#include "userapps/FTM/FTM_Task.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <syslog.h>

#include <cstdlib>
#include <cstring>
#include <new>

#include "platform/board.h"
#include "userapps/FTM/FTM_Apis.h"
#include "userapps/FTM/TFTPserver.h"
#include "userapps/FTM/WrLsTask.h"
#include "userapps/FTM/xml_parser.h"

int servSock = -1;
std::atomic<stMgmtUtilClientInfo*> pClient{nullptr};
pthread_t g_timeout_thread_id;
pthread_t sttftp_taskThread;
pthread_t WrLsTaskThread;
int iNeedByteswap;
int hLogServer;

namespace {

constexpr std::uint16_t tftpPort = 69;
constexpr std::size_t defaultStack = 0;
// What a document takes, and as much again for the rest of a request.
constexpr std::size_t tftpTaskStack = 2 * xmlDocumentStack;

struct WorkerThread {
  pthread_t* id;
  void* (*body)(void*);
  std::size_t stackSize; ///< bytes, or defaultStack
  const char* name;      ///< as the log names it
};

constexpr WorkerThread workerThreads[] = {
    {&g_timeout_thread_id, ClientAge, defaultStack, "timeout_thread"},
    {&sttftp_taskThread, tftp_task, tftpTaskStack, "tftp_task"},
    {&WrLsTaskThread, WrLsTask, defaultStack, "WrLsTaskThread"},
};

// Marks of an earlier run: modem configuration, its backup, test mode.
constexpr const char* leftOverFiles[] = {"/NVRM/current.cfg", "/NVRM/current.bak", "/NVRM/PTM_MODE"};

int createThread(const WorkerThread& thread) {
  if (thread.stackSize == defaultStack)
    return pthread_create(thread.id, nullptr, thread.body, nullptr);
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, thread.stackSize);
  const int result = pthread_create(thread.id, &attributes, thread.body, nullptr);
  pthread_attr_destroy(&attributes);
  return result;
}

void startWorkerThreads() {
  for (const WorkerThread& thread : workerThreads) {
    if (createThread(thread) == 0)
      continue;
    board_syslog(LOG_ERR, "%s FATAL: failed to start %s thread", "FTM", thread.name);
    std::exit(-1);
  }
}

/// Where `new` finds no memory. Nobody catches an exception here, so the service ends as it does of any fatal error.
void endWithoutMemory() {
  std::set_new_handler(nullptr); // the way out may want memory as well
  DieWithError("out of memory");
}

void openServerSocket() {
  servSock = socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
  if (servSock < 0)
    DieWithError("socket() failed");
  fcntl(servSock, F_SETFD, FD_CLOEXEC); // a command that outlives the service must not keep its port
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_ANY);
  address.sin_port = htons(tftpPort);
  if (bind(servSock, reinterpret_cast<const sockaddr*>(&address), sizeof address) < 0)
    DieWithError("bind() failed");
}

} // namespace

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security" // the message is the format itself; every caller passes a constant
void DieWithError(const char* errorMessage) {
  board_syslog(LOG_ERR, errorMessage);
  std::exit(-1);
}
#pragma GCC diagnostic pop

void FtmStartUp() {
  std::set_new_handler(endWithoutMemory);
  board_syslog(LOG_INFO, "FTM Started\n");
  usAcivityTmr.store(0, std::memory_order_relaxed);
  FtmClear4PortStat();
  std::memset(g_CurrentConnections, 0, sizeof g_CurrentConnections);
  startWorkerThreads();
  openServerSocket();
  for (const char* file : leftOverFiles)
    board_unlink(file);
}

void FtmReceive() {
  unsigned char datagram[maxDatagram];
  sockaddr_in sender{};
  socklen_t senderLength = sizeof sender;
  const ssize_t length =
      recvfrom(servSock, datagram, sizeof datagram, 0, reinterpret_cast<sockaddr*>(&sender), &senderLength);
  if (length <= 0) { // an empty datagram ends the service too, on purpose
    board_syslog(LOG_ERR, "recvfrom() failed\n");
    DieWithError("recvfrom() failed");
  }
  const auto bytes = static_cast<std::uint16_t>(length);
  stMgmtUtilClientInfo* const client = GetClientConnection(datagram, bytes, sender);
  pClient.store(client, std::memory_order_relaxed);
  if (client != nullptr)
    FtmClientSaveData(datagram, bytes);
}

void FTM_Main() {
  FtmStartUp();
  for (;;)
    FtmReceive();
}
