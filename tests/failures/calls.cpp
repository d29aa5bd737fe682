#include "tests/failures/calls.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <new>

#include "platform/board.h"
#include "platform/cfg_api.h"
#include "tests/failures/session.h"

namespace {

bool isInService = false;
std::size_t failing = 0;
std::size_t counted = 0;
std::string failedCall;

/// Whether it is this call's turn to fail.
bool fails(const char* name, const char* what = nullptr) {
  const calls::Outside outside;
  if (++counted != failing)
    return false;
  failedCall = name;
  if (what != nullptr)
    failedCall.append(" ").append(what);
  return true;
}

/// The same for an allocation: no text may be made for each of them.
bool isRefused(const char* name) {
  return isInService && fails(name);
}

/// A call of the service, with what it gives when it fails; one of anybody else just goes through.
template <class Result, class Real>
Result call(const char* name, const char* what, Result failure, Real real) {
  if (isInService && fails(name, what)) {
    errno = EIO;
    return failure;
  }
  const calls::Outside outside;
  return real();
}

} // namespace

calls::Outside::Outside() : m_wasInService(isInService) {
  isInService = false;
}

calls::Outside::~Outside() {
  isInService = m_wasInService;
}

calls::InService::InService() : m_wasInService(isInService) {
  isInService = true;
}

calls::InService::~InService() {
  isInService = m_wasInService;
}

void calls::letFail(std::size_t number) {
  failing = number;
  counted = 0;
  failedCall.clear();
}

std::size_t calls::count() {
  return counted;
}

const std::string& calls::failed() {
  return failedCall;
}

// WRAP(type, name, (parameters)): the real function, and the one that the service reaches in its place.
#define WRAP(type, name, parameters)                                                                                   \
  type real_##name parameters asm("__real_" #name);                                                                    \
  type wrap_##name parameters asm("__wrap_" #name);                                                                    \
  type wrap_##name parameters

// The heap.

WRAP(void*, malloc, (std::size_t size)) {
  return isRefused("malloc") ? nullptr : real_malloc(size);
}

WRAP(void*, calloc, (std::size_t count, std::size_t size)) {
  return isRefused("calloc") ? nullptr : real_calloc(count, size);
}

WRAP(void*, realloc, (void* memory, std::size_t size)) {
  return isRefused("realloc") ? nullptr : real_realloc(memory, size);
}

// As the library's own do, but for the one that fails. They stand in the place of these for the library as well.
void* operator new(std::size_t size) {
  void* const memory = isRefused("new") ? nullptr : real_malloc(size);
  if (memory != nullptr)
    return memory;
  if (const std::new_handler handler = std::get_new_handler(); handler != nullptr)
    handler();
  throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
  std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}

// The board.

WRAP(int, board_open, (const char* path, int flags)) {
  return call("board_open", path, -1, [&] { return real_board_open(path, flags); });
}

WRAP(int, board_close, (int descriptor)) {
  // A descriptor is closed even when that fails.
  const bool isFailing = isInService && fails("board_close");
  const calls::Outside outside;
  const int result = real_board_close(descriptor);
  return isFailing ? -1 : result;
}

WRAP(int, board_ioctl, (int descriptor, unsigned long request, void* argument)) {
  char text[32];
  std::snprintf(text, sizeof text, "0x%lx", request);
  return call("board_ioctl", text, -1, [&] { return real_board_ioctl(descriptor, request, argument); });
}

WRAP(int, board_socket, (int domain, int type, int protocol)) {
  return call("board_socket", nullptr, -1, [&] { return real_board_socket(domain, type, protocol); });
}

WRAP(std::FILE*, board_fopen, (const char* path, const char* mode)) {
  return call<std::FILE*>("board_fopen", path, nullptr, [&] { return real_board_fopen(path, mode); });
}

WRAP(int, board_unlink, (const char* path)) {
  return call("board_unlink", path, -1, [&] { return real_board_unlink(path); });
}

WRAP(int, board_kill, (pid_t pid, int signal)) {
  return call("board_kill", nullptr, -1, [&] { return real_board_kill(pid, signal); });
}

// It may wake early: a failure is one that does not wait at all.
WRAP(int, board_cond_timedwait, (pthread_cond_t * condition, pthread_mutex_t* mutex, const timespec* deadline)) {
  return call("board_cond_timedwait", nullptr, 0,
              [&] { return real_board_cond_timedwait(condition, mutex, deadline); });
}

// The same for a sleep. None takes time: the clock is moved by hand.
WRAP(int, board_usleep, (useconds_t microseconds)) {
  return call("board_usleep", nullptr, -1, [&] { return real_board_usleep(microseconds); });
}

// The clock always gives the time.
WRAP(int, board_clock_gettime, (timespec * now)) {
  const calls::Outside outside;
  return real_board_clock_gettime(now);
}

WRAP(void, board_vsyslog, (int priority, const char* format, va_list arguments)) {
  const calls::Outside outside;
  real_board_vsyslog(priority, format, arguments);
}

void wrap_board_syslog(int priority, const char* format, ...) asm("__wrap_board_syslog");
void wrap_board_syslog(int priority, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  wrap_board_vsyslog(priority, format, arguments);
  va_end(arguments);
}

// Commands are not run: what they do is none of the service's.

WRAP(int, board_system, (const char*)) {
  return call("board_system", nullptr, -1, [] { return 0; });
}

WRAP(pid_t, board_spawn, (const char*, char* const[], char* const[])) {
  constexpr pid_t somebody = 1 << 30;
  return call("board_spawn", nullptr, -1, [] { return somebody; });
}

WRAP(pid_t, board_waitpid, (pid_t pid, int* status, int)) {
  return call("board_waitpid", nullptr, -1, [&] {
    *status = 0;
    return pid;
  });
}

// The store.

WRAP(void*, cfg_startSession, (int role, const char* name)) {
  return call<void*>("cfg_startSession", nullptr, nullptr, [&] { return real_cfg_startSession(role, name); });
}

WRAP(int, cfg_endSession, (void* session)) {
  const bool isFailing = isInService && fails("cfg_endSession");
  const calls::Outside outside;
  const int result = real_cfg_endSession(session);
  return isFailing ? static_cast<int>(CFG_ERR_COMM) : result;
}

WRAP(int, cl_cfg_getTable,
     (void* session, const char* table, ST_CFG_TABLE** snapshot, const char* file, const char* function, int line)) {
  return call("cl_cfg_getTable", table, static_cast<int>(CFG_ERR_COMM),
              [&] { return real_cl_cfg_getTable(session, table, snapshot, file, function, line); });
}

WRAP(int, cfg_freeTable, (ST_CFG_TABLE * snapshot)) {
  const bool isFailing = isInService && fails("cfg_freeTable");
  const calls::Outside outside;
  const int result = real_cfg_freeTable(snapshot);
  return isFailing ? static_cast<int>(CFG_ERR_COMM) : result;
}

WRAP(int, cfg_startTransaction, (void* session)) {
  return call("cfg_startTransaction", nullptr, static_cast<int>(CFG_ERR_COMM),
              [&] { return real_cfg_startTransaction(session); });
}

WRAP(int, cfg_findCol, (void* session, const char* table, const char* column)) {
  return call("cfg_findCol", column, -1, [&] { return real_cfg_findCol(session, table, column); });
}

WRAP(int, cfg_setField, (void* session, const char* table, int row, int column, const char* value)) {
  return call("cfg_setField", nullptr, static_cast<int>(CFG_ERR_COMM),
              [&] { return real_cfg_setField(session, table, row, column, value); });
}

WRAP(int, cfg_commitTransaction, (void* session)) {
  return call("cfg_commitTransaction", nullptr, static_cast<int>(CFG_ERR_COMM),
              [&] { return real_cfg_commitTransaction(session); });
}

WRAP(int, cfg_abortTransaction, (void* session)) {
  return call("cfg_abortTransaction", nullptr, static_cast<int>(CFG_ERR_COMM),
              [&] { return real_cfg_abortTransaction(session); });
}

WRAP(int, cfg_resetCfg, (void* session, int scope)) {
  return call("cfg_resetCfg", nullptr, static_cast<int>(CFG_ERR_COMM),
              [&] { return real_cfg_resetCfg(session, scope); });
}

WRAP(int, cfg_setListen, (void* session, CFG_LISTENER listener)) {
  return call("cfg_setListen", nullptr, static_cast<int>(CFG_ERR_COMM),
              [&] { return real_cfg_setListen(session, listener); });
}

WRAP(int, cfg_listenSubject, (void* session, const char* subject)) {
  return call("cfg_listenSubject", nullptr, static_cast<int>(CFG_ERR_COMM),
              [&] { return real_cfg_listenSubject(session, subject); });
}

WRAP(int, cfg_sendMsg, (void* session, const char* subject, const char* body)) {
  return call("cfg_sendMsg", nullptr, static_cast<int>(CFG_ERR_COMM),
              [&] { return real_cfg_sendMsg(session, subject, body); });
}

WRAP(int, cl_cfg_service, (void* session, const char* file, const char* function, int line)) {
  return call("cl_cfg_service", nullptr, static_cast<int>(CFG_ERR_COMM),
              [&] { return real_cl_cfg_service(session, file, function, line); });
}

WRAP(int, ParseIniFile, (stMgmtUtilClientInfo * client, int* rebootFlag, int* resetFlag, int options)) {
  return call("ParseIniFile", nullptr, static_cast<int>(CFG_ERR_CMD),
              [&] { return real_ParseIniFile(client, rebootFlag, resetFlag, options); });
}

// The system. There are no threads and no network: the session runs the service's rounds itself, and hands it what the
// station sends.

WRAP(int, pthread_create, (pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)) {
  return call("pthread_create", nullptr, EAGAIN, [] { return 0; });
}

WRAP(int, socket, (int, int, int)) {
  constexpr int unusedDescriptor = 1 << 20;
  return call("socket", nullptr, -1, [] { return unusedDescriptor; });
}

WRAP(int, bind, (int, const sockaddr*, socklen_t)) {
  return call("bind", nullptr, -1, [] { return 0; });
}

// A packet that can't be sent is a lost one.
WRAP(ssize_t, sendto, (int, const void* packet, std::size_t length, int, const sockaddr*, socklen_t)) {
  return call<ssize_t>("sendto", nullptr, -1, [&] {
    session::arrives({static_cast<const char*>(packet), length});
    return static_cast<ssize_t>(length);
  });
}
