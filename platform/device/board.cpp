// The gateway's side of board.h: forwards each call to the function that it mirrors.
#include "platform/board.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <string>

namespace {
constexpr int commandNotRun = 127; // the shell's own status for a command that could not be run
}

int board_open(const char* path, int flags) {
  return open(path, flags | O_CLOEXEC);
}

int board_close(int descriptor) {
  return close(descriptor);
}

int board_ioctl(int descriptor, unsigned long request, void* argument) {
  return ioctl(descriptor, request, argument);
}

int board_socket(int domain, int type, int protocol) {
  return socket(domain, type | SOCK_CLOEXEC, protocol);
}

std::FILE* board_fopen(const char* path, const char* mode) {
  return std::fopen(path, (std::string(mode) + "e").c_str()); // no command inherits it
}

int board_unlink(const char* path) {
  return unlink(path);
}

int board_system(const char* command) {
  return std::system(command);
}

pid_t board_spawn(const char* path, char* const argv[], char* const envp[]) {
  const pid_t child = fork();
  if (child == 0) {
    execve(path, argv, envp);
    _exit(commandNotRun);
  }
  return child;
}

pid_t board_waitpid(pid_t pid, int* status, int options) {
  return waitpid(pid, status, options);
}

int board_kill(pid_t pid, int signal) {
  return kill(pid, signal);
}

// The gateway's clock is the real one.
int board_usleep(useconds_t microseconds) {
  return usleep(microseconds);
}

int board_clock_gettime(struct timespec* now) {
  return clock_gettime(CLOCK_MONOTONIC, now);
}

int board_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex, const struct timespec* deadline) {
  return pthread_cond_timedwait(condition, mutex, deadline);
}

void board_vsyslog(int priority, const char* format, va_list arguments) {
  vsyslog(priority, format, arguments);
}

void board_syslog(int priority, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  vsyslog(priority, format, arguments);
  va_end(arguments);
}
