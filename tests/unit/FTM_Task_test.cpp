#include <pthread.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <new>
#include <thread>

#include "platform/cfg_api.h"
#include "tests/unit/tftp_station.h"
#include "userapps/FTM/TFTPserver.h"
#include "userapps/FTM/WrLsTask.h"
#include "userapps/FTM/xml_parser.h"

using testing::AllOf;
using testing::ElementsAre;
using testing::ExitedWithCode;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using testing::internal::CaptureStderr;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStderr;
using testing::internal::GetCapturedStdout;

// What the service asks the kernel and the store for. The linker puts these in the place of the real
// functions (see CMakeLists.txt); they journal the call as a "step" of the unit and go on to the real
// one, unless the test lets them fail.

namespace {

using ThreadBody = void* (*)(void*);

struct StartedThread {
  pthread_t* id;
  ThreadBody body;
  std::size_t stackSize; ///< 0 for default attributes
};

struct Kernel {
  bool isScripted = false; ///< else threads and the socket are real
  std::string failingStep;
  std::vector<StartedThread> threads;
  sockaddr_in boundTo{};
  ssize_t received = -1;
  bool outOfMemory = false;
  int waits = 0;
  bool hasNoSlot = false; ///< for any client
};
Kernel kernel;

struct Store {
  std::string failingStep;
  int role = -1;
  int sendResult = 0;
  int servicesUntilDone = 0;
  CFG_LISTENER listener = nullptr;
  int sessionStandIn = 0;
};
Store store;

void step(const std::string& text) {
  gateway::theUnit().record("step", text);
}

const char* nameOf(ThreadBody body) {
  if (body == ClientAge)
    return "ClientAge";
  if (body == tftp_task)
    return "tftp_task";
  return body == WrLsTask ? "WrLsTask" : "unknown";
}

} // namespace

extern "C" {
int real_pthread_create(pthread_t*, const pthread_attr_t*, ThreadBody, void*) asm("__real_pthread_create");
int wrap_pthread_create(pthread_t*, const pthread_attr_t*, ThreadBody, void*) asm("__wrap_pthread_create");
int real_socket(int, int, int) asm("__real_socket");
int wrap_socket(int, int, int) asm("__wrap_socket");
int real_bind(int, const sockaddr*, socklen_t) asm("__real_bind");
int wrap_bind(int, const sockaddr*, socklen_t) asm("__wrap_bind");
ssize_t real_recvfrom(int, void*, std::size_t, int, sockaddr*, socklen_t*) asm("__real_recvfrom");
ssize_t wrap_recvfrom(int, void*, std::size_t, int, sockaddr*, socklen_t*) asm("__wrap_recvfrom");
void* real_calloc(std::size_t, std::size_t) asm("__real_calloc");
void* wrap_calloc(std::size_t, std::size_t) asm("__wrap_calloc");
int real_board_cond_timedwait(pthread_cond_t*, pthread_mutex_t*, const timespec*) asm("__real_board_cond_timedwait");
int wrap_board_cond_timedwait(pthread_cond_t*, pthread_mutex_t*, const timespec*) asm("__wrap_board_cond_timedwait");
void* wrap_cfg_startSession(int, const char*) asm("__wrap_cfg_startSession");
int wrap_cfg_setListen(void*, CFG_LISTENER) asm("__wrap_cfg_setListen");
int wrap_cfg_listenSubject(void*, const char*) asm("__wrap_cfg_listenSubject");
int wrap_cfg_sendMsg(void*, const char*, const char*) asm("__wrap_cfg_sendMsg");
int wrap_cl_cfg_service(void*, const char*, const char*, int) asm("__wrap_cl_cfg_service");
void wrap_FtmClear4PortStat() asm("__wrap__Z17FtmClear4PortStatv");
stMgmtUtilClientInfo* real_GetClientConnection(const void*, std::size_t,
                                               sockaddr_in) asm("__real_" GET_CLIENT_CONNECTION);
stMgmtUtilClientInfo* wrap_GetClientConnection(const void*, std::size_t,
                                               sockaddr_in) asm("__wrap_" GET_CLIENT_CONNECTION);
}

int wrap_pthread_create(pthread_t* id, const pthread_attr_t* attributes, ThreadBody body, void* argument) {
  if (!kernel.isScripted)
    return real_pthread_create(id, attributes, body, argument);
  const std::string name = nameOf(body);
  step("thread " + name);
  EXPECT_EQ(argument, nullptr);
  std::size_t stackSize = 0;
  if (attributes != nullptr)
    pthread_attr_getstacksize(attributes, &stackSize);
  kernel.threads.push_back({id, body, stackSize});
  return kernel.failingStep == name ? EAGAIN : 0;
}

int wrap_socket(int domain, int type, int protocol) {
  if (!kernel.isScripted)
    return real_socket(domain, type, protocol);
  step(domain == AF_INET && type == SOCK_DGRAM && protocol == IPPROTO_UDP ? "socket" : "wrong socket");
  return kernel.failingStep == "socket" ? -1 : 77;
}

int wrap_bind(int descriptor, const sockaddr* address, socklen_t length) {
  if (!kernel.isScripted)
    return real_bind(descriptor, address, length);
  step("bind " + std::to_string(descriptor));
  EXPECT_EQ(length, sizeof kernel.boundTo);
  std::memcpy(&kernel.boundTo, address, sizeof kernel.boundTo);
  return kernel.failingStep == "bind" ? -1 : 0;
}

ssize_t wrap_recvfrom(int descriptor, void* buffer, std::size_t size, int flags, sockaddr* from, socklen_t* length) {
  if (!kernel.isScripted)
    return real_recvfrom(descriptor, buffer, size, flags, from, length);
  return kernel.received;
}

void* wrap_calloc(std::size_t count, std::size_t size) {
  return kernel.outOfMemory ? nullptr : real_calloc(count, size);
}

int wrap_board_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex, const timespec* deadline) {
  ++kernel.waits;
  return real_board_cond_timedwait(condition, mutex, deadline);
}

void wrap_FtmClear4PortStat() {
  step("clear the four-port counters");
}

stMgmtUtilClientInfo* wrap_GetClientConnection(const void* datagram, std::size_t length, sockaddr_in sender) {
  return kernel.hasNoSlot ? nullptr : real_GetClientConnection(datagram, length, sender);
}

void* wrap_cfg_startSession(int role, const char*) {
  step("session");
  store.role = role;
  return store.failingStep == "session" ? nullptr : &store.sessionStandIn;
}

int wrap_cfg_setListen(void* session, CFG_LISTENER listener) {
  EXPECT_EQ(session, &store.sessionStandIn);
  step("listen");
  store.listener = listener;
  return store.failingStep == "listen" ? CFG_ERR_INTERNAL : CFG_ERR_OK;
}

int wrap_cfg_listenSubject(void* session, const char* subject) {
  EXPECT_EQ(session, &store.sessionStandIn);
  step("listen to "s + subject);
  return CFG_ERR_OK;
}

int wrap_cfg_sendMsg(void* session, const char* subject, const char* body) {
  EXPECT_EQ(session, &store.sessionStandIn);
  step("send "s + subject + " " + body);
  return store.sendResult;
}

int wrap_cl_cfg_service(void* session, const char* sourceFile, const char* function, int line) {
  EXPECT_EQ(session, &store.sessionStandIn);
  EXPECT_GT(line, 0);
  step("service for "s + sourceFile + " " + function);
  if (--store.servicesUntilDone == 0)
    non_essential_app_shutdown(session, "MMNESD_DONE", "0");
  return CFG_ERR_OK;
}

namespace {

class FTM_Task : public TftpStation {
protected:
  FTM_Task() {
    kernel = {};
    store = {};
    usAcivityTmr = 0;
  }
  ~FTM_Task() override {
    kernel = {};
    pvSession = nullptr;
    bNESDShutdownCalled = false;
    bNESDShutdownComplete = false;
  }

  static sockaddr_in sender(std::uint32_t address, std::uint16_t port) {
    sockaddr_in result{};
    result.sin_family = AF_INET;
    result.sin_addr.s_addr = htonl(address);
    result.sin_port = htons(port);
    return result;
  }

  static int slotOf(const stMgmtUtilClientInfo* client) { return static_cast<int>(client - g_CurrentConnections); }

  /// Slot of a sender whose datagram has just come.
  static int contact(std::uint32_t address, std::uint16_t port = 1000) {
    return slotOf(GetClientConnection("x", 1, sender(address, port)));
  }

  static void pass(int seconds) {
    for (int i = 0; i < seconds; ++i)
      ClientAgeTick();
  }

  static std::string taken() {
    char buffer[queuedDatagramSize];
    const std::uint16_t length = recvTftp(buffer);
    return {buffer, length};
  }
};

// The client table. Slot 0 belongs to the fixture's own station.

TEST_F(FTM_Task, ANewSenderGetsTheFirstFreeSlot) {
  EXPECT_EQ(contact(1), 1);
  EXPECT_EQ(contact(2), 2);
  const stMgmtUtilClientInfo& client = g_CurrentConnections[2];
  EXPECT_EQ(client.iTimeOut, 120U);
  EXPECT_EQ(client.iState, eIdle);
  EXPECT_EQ(client.ClientAddr.sin_family, AF_INET);
  EXPECT_EQ(client.ClientAddr.sin_addr.s_addr, htonl(2));
  EXPECT_EQ(client.ClientAddr.sin_port, htons(1000));
}

TEST_F(FTM_Task, AKnownSenderKeepsItsSlotAndItsLifeIsRenewed) {
  contact(1);
  g_CurrentConnections[1].iTimeOut = 5;
  EXPECT_EQ(contact(1), 1);
  EXPECT_EQ(g_CurrentConnections[1].iTimeOut, 120U);
}

TEST_F(FTM_Task, AnAssignedSlotIsIdle) {
  g_CurrentConnections[1].iState = eHexInProgress;
  EXPECT_EQ(contact(1), 1);
  EXPECT_EQ(g_CurrentConnections[1].iState, eIdle);
}

TEST_F(FTM_Task, AnotherPortIsAnotherClient) {
  EXPECT_EQ(contact(1, 1000), 1);
  EXPECT_EQ(contact(1, 1001), 2);
}

TEST_F(FTM_Task, TheAddressFamilyIsNotCompared) {
  contact(1);
  sockaddr_in other = sender(1, 1000);
  other.sin_family = AF_UNSPEC;
  EXPECT_EQ(slotOf(LookupClientConnection(other)), 1);
}

TEST_F(FTM_Task, AnUnknownSenderIsNotFound) {
  EXPECT_EQ(LookupClientConnection(sender(1, 1)), nullptr);
}

TEST_F(FTM_Task, The101stSenderTakesOverTheSlotWithTheLeastTimeLeft) {
  for (std::uint32_t address = 1; address < 100; ++address)
    contact(address);
  g_CurrentConnections[60].iTimeOut = 7;
  g_CurrentConnections[61].iTimeOut = 8;
  CaptureStdout();
  EXPECT_EQ(contact(500), 60);
  EXPECT_EQ(GetCapturedStdout(), "Close Old Connection 60\n");
  EXPECT_EQ(g_CurrentConnections[60].iTimeOut, 120U);
  EXPECT_EQ(g_CurrentConnections[60].ClientAddr.sin_addr.s_addr, htonl(500));
}

TEST_F(FTM_Task, ATieForTheLeastTimeLeftGoesToTheLowestSlot) {
  for (std::uint32_t address = 1; address < 100; ++address)
    contact(address);
  CaptureStdout();
  EXPECT_EQ(contact(500), 0);
  g_CurrentConnections[30].iTimeOut = 7;
  g_CurrentConnections[20].iTimeOut = 7;
  EXPECT_EQ(contact(501), 20);
  EXPECT_EQ(GetCapturedStdout(), "Close Old Connection 0\nClose Old Connection 20\n");
}

TEST_F(FTM_Task, AnEvictedClientLosesItsBuffersAndItsState) {
  for (std::uint32_t address = 1; address < 100; ++address)
    contact(address);
  stMgmtUtilClientInfo& victim = g_CurrentConnections[3];
  victim.iTimeOut = 1;
  victim.iState = eUpgradeInProgress;
  victim.pcData = strdup("data");
  victim.pszSRec = strdup("record");
  CaptureStdout();
  EXPECT_EQ(contact(500), 3);
  GetCapturedStdout();
  EXPECT_EQ(victim.pcData, nullptr);
  EXPECT_EQ(victim.pszSRec, nullptr);
  EXPECT_EQ(victim.iState, eIdle);
}

TEST_F(FTM_Task, AClosedClientKeepsItsAddressOnly) {
  contact(9);
  stMgmtUtilClientInfo& client = g_CurrentConnections[1];
  client.iState = eHexInProgress;
  client.pcData = strdup("data");
  CloseClientConnection(&client, 1);
  EXPECT_EQ(client.iTimeOut, 0U);
  EXPECT_EQ(client.iState, eIdle);
  EXPECT_EQ(client.pcData, nullptr);
  EXPECT_EQ(client.ClientAddr.sin_addr.s_addr, htonl(9));
}

TEST_F(FTM_Task, ClosingTakesTheLockUnlessTheCallerHoldsIt) {
  contact(9);
  pthread_mutex_lock(&g_connections_mutex);
  CloseClientConnection(&g_CurrentConnections[1], 0);
  pthread_mutex_unlock(&g_connections_mutex);
  EXPECT_EQ(g_CurrentConnections[1].iTimeOut, 0U);
  CloseClientConnection(&g_CurrentConnections[0], 1);
  EXPECT_EQ(pthread_mutex_trylock(&g_connections_mutex), 0);
  pthread_mutex_unlock(&g_connections_mutex);
}

TEST_F(FTM_Task, AClientExpires120SecondsAfterItsLastDatagram) {
  contact(1);
  pass(60);
  EXPECT_EQ(contact(1), 1);
  pass(119);
  EXPECT_EQ(g_CurrentConnections[1].iTimeOut, 1U);
  pass(1);
  EXPECT_EQ(g_CurrentConnections[1].iTimeOut, 0U);
}

TEST_F(FTM_Task, ASenderThatWasSilentFor120SecondsGetsANewSlot) {
  contact(1);
  EXPECT_EQ(contact(2), 2);
  pass(120);
  EXPECT_EQ(contact(2), 0);
}

TEST_F(FTM_Task, AnExpiredClientLosesItsBuffers) {
  contact(1);
  g_CurrentConnections[1].pcData = strdup("data");
  pass(120);
  EXPECT_EQ(g_CurrentConnections[1].pcData, nullptr);
}

TEST_F(FTM_Task, TheClockOfTheAgeingThreadTicksOncePerSecond) {
  pass(3);
  EXPECT_EQ(gateway::clock::nowMs(), 3000);
}

// Inactivity

TEST_F(FTM_Task, TheDeviceRebootsAfter600SecondsWithoutADatagram) {
  pass(599);
  EXPECT_THAT(journal("reboot"), IsEmpty());
  pass(1);
  EXPECT_THAT(journal("log"), IsEmpty()); // it comes unannounced
  EXPECT_THAT(journal("reboot"), ElementsAre("normal"));
  EXPECT_EQ(usAcivityTmr, 0);
  pass(600);
  EXPECT_THAT(journal("reboot"), ElementsAre("normal", "normal"));
}

TEST_F(FTM_Task, ADatagramThatIsQueuedButNotTakenDoesNotKeepTheDeviceUp) {
  pass(599);
  station.sendTo(server, rrq("f"));
  FtmReceive();
  pass(1);
  EXPECT_EQ(journal("reboot").size(), 1U);
}

TEST_F(FTM_Task, ATakenDatagramStartsTheInactivityAgain) {
  pass(599);
  queued("x");
  taken();
  EXPECT_EQ(usAcivityTmr, 0);
  pass(599);
  EXPECT_THAT(journal("reboot"), IsEmpty());
}

TEST_F(FTM_Task, LookingIntoAnEmptyQueueIsNoActivity) {
  pass(5);
  char buffer[queuedDatagramSize];
  EXPECT_EQ(recvTftp(buffer), 0);
  EXPECT_EQ(usAcivityTmr, 5);
}

// The receive queue

TEST_F(FTM_Task, DatagramsAreTakenInTheOrderOfTheirArrival) {
  queued("one");
  queued("two");
  EXPECT_EQ(taken(), "one");
  queued("three");
  EXPECT_EQ(taken(), "two");
  EXPECT_EQ(taken(), "three");
  EXPECT_EQ(taken(), "");
  queued("four");
  EXPECT_EQ(taken(), "four");
}

TEST_F(FTM_Task, NothingIsTakenWithoutABuffer) {
  queued("one");
  EXPECT_EQ(recvTftp(nullptr), 0);
  EXPECT_EQ(taken(), "one");
}

TEST_F(FTM_Task, ADatagramThatFindsNoMemoryIsLost) {
  queued("one");
  CaptureStdout();
  kernel.outOfMemory = true;
  queued("two");
  kernel.outOfMemory = false;
  EXPECT_EQ(GetCapturedStdout(), "ftm_ProcessRcvTFTPData: Unable to allocate buffer");
  queued("three");
  EXPECT_EQ(taken(), "one");
  EXPECT_EQ(taken(), "three");
}

TEST_F(FTM_Task, ADatagramIsCutToTheSizeOfAQueueEntry) {
  queued(fileOf(700));
  queued(fileOf(701));
  queued(fileOf(65535));
  EXPECT_EQ(taken(), fileOf(700));
  EXPECT_EQ(taken(), fileOf(700));
  EXPECT_EQ(taken(), fileOf(700));
}

TEST_F(FTM_Task, ABurstOf100000DatagramsIsQueuedWithoutWalkingTheQueue) {
  constexpr int burst = 100'000;
  const std::clock_t start = std::clock();
  for (int i = 0; i < burst; ++i)
    queued(std::to_string(i));
  const auto processorTime = std::chrono::seconds((std::clock() - start) / CLOCKS_PER_SEC);
  EXPECT_LT(processorTime, std::chrono::seconds(5));
  for (int i = 0; i < burst; ++i)
    ASSERT_EQ(taken(), std::to_string(i));
  EXPECT_EQ(pstTFTPPacket.load(), nullptr);
}

TEST_F(FTM_Task, WaitingEndsWhenADatagramArrives) {
  arrives(1234, "x");
  EXPECT_TRUE(awaitTftp(boardNow() + std::chrono::seconds(60)));
  EXPECT_EQ(gateway::clock::nowMs(), 1234);
}

TEST_F(FTM_Task, WaitingForWhatIsQueuedAlreadyTakesNoTime) {
  queued("x");
  EXPECT_TRUE(awaitTftp(boardNow() + std::chrono::seconds(60)));
  EXPECT_EQ(gateway::clock::nowMs(), 0);
}

TEST_F(FTM_Task, WaitingEndsAtItsDeadline) {
  EXPECT_FALSE(awaitTftp(boardNow() + std::chrono::milliseconds(250)));
  EXPECT_EQ(gateway::clock::nowMs(), 250);
}

TEST_F(FTM_Task, WaitingOutlastsWhateverElseWakesIt) {
  gateway::clock::at(100, [] {});
  EXPECT_FALSE(awaitTftp(boardNow() + std::chrono::milliseconds(250)));
  EXPECT_EQ(gateway::clock::nowMs(), 250);
}

TEST_F(FTM_Task, AnIdleWaitSleepsUntilItsDeadline) {
  gateway::clock::useReal();
  EXPECT_FALSE(awaitTftp(boardNow() + std::chrono::milliseconds(20)));
  EXPECT_LE(kernel.waits, 3) << "the wait turns round and round";
}

TEST_F(FTM_Task, TheReceivingThreadWakesTheWaitingOne) {
  gateway::clock::useReal();
  std::thread receiving([] { FtmReceive(); });
  station.sendTo(server, "wake up");
  EXPECT_TRUE(awaitTftp(boardNow() + std::chrono::seconds(60)));
  EXPECT_EQ(taken(), "wake up");
  receiving.join();
}

TEST_F(FTM_Task, ReceivingServingAndAgeingShareTheTableAndTheQueue) {
  constexpr int datagrams = 2000;
  gateway::clock::useReal();
  CaptureStdout();
  std::thread receiving([] {
    for (std::uint32_t i = 0; i < datagrams; ++i) {
      pClient = GetClientConnection("x", 1, sender(INADDR_LOOPBACK, static_cast<std::uint16_t>(1 + i % 150)));
      queued("x");
    }
  });
  std::thread ageing([] {
    for (std::size_t i = 0; i < datagrams; ++i) {
      CloseClientConnection(&g_CurrentConnections[i % maxClients], 1);
      ++usAcivityTmr;
    }
  });
  int count = 0;
  while (count < datagrams && awaitTftp(boardNow() + std::chrono::seconds(30))) {
    count += taken() == "x";
    sendTftp("y", 1);
  }
  receiving.join();
  ageing.join();
  GetCapturedStdout();
  EXPECT_EQ(count, datagrams);
}

// Sending

TEST_F(FTM_Task, RepliesGoToTheSenderOfTheNewestDatagram) {
  EXPECT_EQ(sendTftp("first", 5), 5);
  secondStation.sendTo(server, "hello");
  FtmReceive();
  EXPECT_EQ(sendTftp("second", 6), 6);
  EXPECT_THAT(station.received(), ElementsAre("first"));
  EXPECT_THAT(secondStation.received(), ElementsAre("second"));
}

TEST_F(FTM_Task, NothingIsSentBeforeAnybodyHasSent) {
  pClient = nullptr;
  EXPECT_EQ(sendTftp("x", 1), -1);
}

TEST_F(FTM_Task, SendingReportsTheFailureOfTheSocket) {
  servSock = -1;
  EXPECT_EQ(sendTftp("x", 1), -1);
}

TEST_F(FTM_Task, AResponseGoesToTheAddressGiven) {
  EXPECT_EQ(SendResponse(server.descriptor(), secondStation.address(), "abc", 3), 3);
  EXPECT_THAT(secondStation.received(), ElementsAre("abc"));
}

TEST(Munge32, ReversesTheBytesOfAWordInPlace) {
  const std::uint32_t guard = 0;
  std::uint32_t word = 0x11223344;
  EXPECT_EQ(Munge32(&guard, &word), &word);
  EXPECT_EQ(word, 0x44332211U);
}

TEST(Munge32, LeavesTheWordAloneWithoutAGuard) {
  std::uint32_t word = 0x11223344;
  EXPECT_EQ(Munge32(nullptr, &word), nullptr);
  EXPECT_EQ(word, 0x11223344U);
}

// Receiving

TEST_F(FTM_Task, AReceivedDatagramIsQueuedAndItsSenderGetsTheReplies) {
  secondStation.sendTo(server, "hello");
  FtmReceive();
  EXPECT_EQ(pClient, &g_CurrentConnections[1]);
  EXPECT_EQ(g_CurrentConnections[1].ClientAddr.sin_port, secondStation.address().sin_port);
  EXPECT_EQ(taken(), "hello");
}

TEST_F(FTM_Task, ADatagramOfASenderWithoutASlotIsLostAndNobodyGetsTheReplies) {
  kernel.hasNoSlot = true;
  secondStation.sendTo(server, "hello");
  FtmReceive();
  EXPECT_EQ(pClient, nullptr);
  EXPECT_EQ(taken(), "");
}

TEST_F(FTM_Task, DatagramsOfAllSendersShareOneQueue) {
  station.sendTo(server, "a");
  FtmReceive();
  secondStation.sendTo(server, "b");
  FtmReceive();
  station.sendTo(server, "c");
  FtmReceive();
  EXPECT_EQ(taken(), "a");
  EXPECT_EQ(taken(), "b");
  EXPECT_EQ(taken(), "c");
}

TEST_F(FTM_Task, AReceivedDatagramIsCutAfterAHeaderAndAFullBlock) {
  station.sendTo(server, fileOf(517));
  FtmReceive();
  EXPECT_EQ(taken(), fileOf(516));
}

// Start-up

class StartUp : public FTM_Task {
protected:
  StartUp() {
    kernel.isScripted = true;
    // The unit's folder is made here, so that it goes with the unit: a process that ends with status 255 removes none.
    static_cast<void>(unit().gatewayPath("/"));
  }

  /// Runs in a process that ends: what the unit's journal holds then is printed.
  static void printJournalAtExit() {
    std::atexit([] {
      for (const std::string& row : journal())
        std::fprintf(stderr, "%s\n", row.c_str());
    });
  }

  static void startAndEnd() {
    printJournalAtExit();
    FtmStartUp();
    std::_Exit(0); // not reached
  }

  static void receiveAndEnd(ssize_t received) {
    printJournalAtExit();
    kernel.received = received;
    FtmReceive();
    std::_Exit(0); // not reached
  }
};

TEST_F(StartUp, FollowsItsOrder) {
  FtmStartUp();
  EXPECT_THAT(journal(),
              ElementsAre("log info FTM Started\n", "step clear the four-port counters", "step thread ClientAge",
                          "step thread tftp_task", "step thread WrLsTask", "step socket", "step bind 77",
                          "remove /NVRM/current.cfg", "remove /NVRM/current.bak", "remove /NVRM/PTM_MODE"));
  EXPECT_EQ(servSock, 77);
}

TEST_F(StartUp, RemovesWhatAnEarlierRunLeft) {
  std::vector<std::filesystem::path> leftOver;
  for (const char* path : {"/NVRM/current.cfg", "/NVRM/current.bak", "/NVRM/PTM_MODE"}) {
    leftOver.push_back(unit().gatewayPath(path));
    std::filesystem::create_directories(leftOver.back().parent_path());
    std::ofstream(leftOver.back()) << "left over";
  }
  FtmStartUp();
  for (const auto& path : leftOver)
    EXPECT_FALSE(std::filesystem::exists(path)) << path;
}

TEST_F(StartUp, BindsUdpPort69OfEveryAddress) {
  FtmStartUp();
  EXPECT_EQ(kernel.boundTo.sin_family, AF_INET);
  EXPECT_EQ(kernel.boundTo.sin_addr.s_addr, INADDR_ANY);
  EXPECT_EQ(std::memcmp(&kernel.boundTo.sin_port, "\0\x45", 2), 0);
}

TEST_F(StartUp, ClearsTheClientTableAndTheInactivity) {
  contact(1);
  usAcivityTmr = 300;
  FtmStartUp();
  EXPECT_EQ(usAcivityTmr, 0);
  for (const stMgmtUtilClientInfo& client : g_CurrentConnections)
    EXPECT_EQ(client.iTimeOut + client.ClientAddr.sin_port + client.ClientAddr.sin_addr.s_addr, 0U);
}

TEST_F(StartUp, KeepsTheIdentityOfEachThread) {
  FtmStartUp();
  ASSERT_EQ(kernel.threads.size(), 3U);
  EXPECT_EQ(kernel.threads[0].id, &g_timeout_thread_id);
  EXPECT_EQ(kernel.threads[1].id, &sttftp_taskThread);
  EXPECT_EQ(kernel.threads[2].id, &WrLsTaskThread);
}

TEST_F(StartUp, GivesTheServerTaskTheStackThatDeepDocumentsNeed) {
  FtmStartUp();
  ASSERT_EQ(kernel.threads.size(), 3U);
  EXPECT_EQ(kernel.threads[0].stackSize, 0U);
  EXPECT_GT(kernel.threads[1].stackSize, xmlDocumentStack);
  EXPECT_EQ(kernel.threads[2].stackSize, 0U);
}

using StartUpDeathTest = StartUp;

TEST_F(StartUpDeathTest, EndsWithStatus255WhenTheAgeingThreadCannotBeStarted) {
  kernel.failingStep = "ClientAge";
  EXPECT_EXIT(
      startAndEnd(), ExitedWithCode(255),
      AllOf(HasSubstr("log err FTM FATAL: failed to start timeout_thread thread\n"), Not(HasSubstr("tftp_task"))));
}

TEST_F(StartUpDeathTest, EndsWithStatus255WhenTheServerTaskCannotBeStarted) {
  kernel.failingStep = "tftp_task";
  EXPECT_EXIT(startAndEnd(), ExitedWithCode(255),
              AllOf(HasSubstr("log err FTM FATAL: failed to start tftp_task thread\n"), Not(HasSubstr("WrLsTask"))));
}

TEST_F(StartUpDeathTest, EndsWithStatus255WhenTheWirelessTaskCannotBeStarted) {
  kernel.failingStep = "WrLsTask";
  EXPECT_EXIT(startAndEnd(), ExitedWithCode(255),
              AllOf(HasSubstr("log err FTM FATAL: failed to start WrLsTaskThread thread\n"), Not(HasSubstr("socket"))));
}

TEST_F(StartUpDeathTest, EndsWithStatus255WithoutASocket) {
  kernel.failingStep = "socket";
  EXPECT_EXIT(startAndEnd(), ExitedWithCode(255),
              AllOf(HasSubstr("log err socket() failed\n"), Not(HasSubstr("step bind"))));
}

TEST_F(StartUpDeathTest, EndsWithStatus255AfterStartingItsThreadsWhenPort69IsTaken) {
  kernel.failingStep = "bind";
  EXPECT_EXIT(startAndEnd(), ExitedWithCode(255),
              AllOf(HasSubstr("step thread ClientAge\nstep thread tftp_task\nstep thread WrLsTask\n"),
                    HasSubstr("log err bind() failed\n"), Not(HasSubstr("/NVRM"))));
}

TEST_F(StartUpDeathTest, EndsWithStatus255WhereNewFindsNoMemory) {
  EXPECT_EXIT(
      {
        printJournalAtExit();
        FtmStartUp();
        std::get_new_handler()();
      },
      ExitedWithCode(255), HasSubstr("log err out of memory\n"));
}

TEST_F(StartUpDeathTest, EndsWithStatus255WhenReceivingFails) {
  EXPECT_EXIT(receiveAndEnd(-1), ExitedWithCode(255),
              HasSubstr("log err recvfrom() failed\n\nlog err recvfrom() failed\n"));
}

TEST_F(StartUpDeathTest, EndsWithStatus255OnADatagramWithoutBytes) {
  EXPECT_EXIT(receiveAndEnd(0), ExitedWithCode(255),
              HasSubstr("log err recvfrom() failed\n\nlog err recvfrom() failed\n"));
}

TEST_F(StartUpDeathTest, ALastMessageIsItsOwnFormat) {
  EXPECT_EXIT(
      {
        printJournalAtExit();
        DieWithError("100%% dead");
      },
      ExitedWithCode(255), HasSubstr("log err 100% dead\n"));
}

// Shutdown of the non-essential applications

using NonEssentialShutdown = FTM_Task;

TEST_F(NonEssentialShutdown, IsAskedForInAMessageThatNamesTheProcess) {
  bNESDShutdownComplete = true;
  EXPECT_EQ(setNEShutdown(), 0);
  EXPECT_THAT(journal("step"), ElementsAre("session", "listen", "listen to MMNESD_DONE",
                                           "send MMNESD_START " + std::to_string(getpid())));
  EXPECT_EQ(store.role, CFG_ROLE_MODEM);
  EXPECT_EQ(store.listener, non_essential_app_shutdown);
  EXPECT_TRUE(bNESDShutdownCalled);
  EXPECT_FALSE(bNESDShutdownComplete);
}

TEST_F(NonEssentialShutdown, IsAskedForOnce) {
  setNEShutdown();
  const auto before = journal();
  EXPECT_EQ(setNEShutdown(), 1);
  EXPECT_EQ(journal(), before);
}

TEST_F(NonEssentialShutdown, ReportsThatTheRequestCouldNotBeSent) {
  store.sendResult = CFG_ERR_COMM;
  EXPECT_EQ(setNEShutdown(), CFG_ERR_COMM);
}

TEST_F(NonEssentialShutdown, IsAskedForEvenWhenTheAnswerCannotBeHeard) {
  store.failingStep = "listen";
  CaptureStderr();
  EXPECT_EQ(setNEShutdown(), 0);
  EXPECT_EQ(GetCapturedStderr(), "shutdown listener failed\n");
  EXPECT_THAT(journal("step"), ElementsAre("session", "listen", StartsWith("send MMNESD_START")));
}

TEST_F(NonEssentialShutdown, FailsWithoutASession) {
  store.failingStep = "session";
  CaptureStderr();
  EXPECT_EQ(setNEShutdown(), CFG_ERR_COMM);
  EXPECT_EQ(GetCapturedStderr(), "error: failed to start session\n");
  EXPECT_THAT(journal("step"), ElementsAre("session"));
}

TEST_F(NonEssentialShutdown, IsAwaitedSecondBySecond) {
  setNEShutdown();
  store.servicesUntilDone = 3;
  CaptureStdout();
  EXPECT_NE(waitForNEShutdown(), 0);
  EXPECT_EQ(GetCapturedStdout(), "Non-Essential Shutdown complete rc=0 0\n");
  EXPECT_EQ(gateway::clock::nowMs(), 2000);
  EXPECT_THAT(journal("step"), testing::Contains("service for FTM_Task.c waitForNEShutdown").Times(3));
}

TEST_F(NonEssentialShutdown, IsNotAwaitedWhenTheAnswerIsThere) {
  setNEShutdown();
  store.servicesUntilDone = 1;
  CaptureStdout();
  EXPECT_NE(waitForNEShutdown(), 0);
  GetCapturedStdout();
  EXPECT_EQ(gateway::clock::nowMs(), 0);
}

TEST_F(NonEssentialShutdown, IsAwaitedWithoutASessionToo) {
  store.failingStep = "session";
  bNESDShutdownComplete = true;
  CaptureStderr();
  EXPECT_NE(waitForNEShutdown(), 0);
  EXPECT_EQ(GetCapturedStderr(), "error: failed to start session\n");
  EXPECT_THAT(journal("step"), ElementsAre("session"));
}

TEST_F(NonEssentialShutdown, ShowsTheAnswerAsTextAndAsNumber) {
  CaptureStdout();
  non_essential_app_shutdown(nullptr, "MMNESD_DONE", "12 applications");
  non_essential_app_shutdown(nullptr, "MMNESD_DONE", "none");
  non_essential_app_shutdown(nullptr, "MMNESD_DONE", nullptr);
  EXPECT_EQ(GetCapturedStdout(), "Non-Essential Shutdown complete rc=12 applications 12\n"
                                 "Non-Essential Shutdown complete rc=none 0\n"
                                 "Non-Essential Shutdown complete rc= 0\n");
  EXPECT_TRUE(bNESDShutdownComplete);
}

} // namespace
