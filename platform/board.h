#pragma once
// The one seam between the service and the kernel it runs on.
//
// Every function mirrors the POSIX function of the same name: same arguments, same result, errno set
// the same way. The gateway's side (platform/device) forwards them; the simulated gateway answers
// them from its own state. Nothing here knows what a request means: that is the callers' business.
// All functions may be called from any thread.

#include <pthread.h>
#include <sys/types.h>
#include <time.h>

#include <cstdarg>
#include <cstdio>

extern "C" {

/// open(2) of a character device. Returns a descriptor, or -1.
int board_open(const char* path, int flags);

/// close(2) of a descriptor from board_open() or board_socket(). Returns 0, or -1.
int board_close(int descriptor);

/// ioctl(2). `argument` is a record, or null where the request takes none. Returns 0 or more, or -1.
int board_ioctl(int descriptor, unsigned long request, void* argument);

/// socket(2), for the control sockets that carry network-interface requests. Returns a descriptor, or -1.
int board_socket(int domain, int type, int protocol);

/// fopen(3) of a kernel text file. Returns a stream for fgets(3) and fclose(3), or null.
std::FILE* board_fopen(const char* path, const char* mode);

/// unlink(2). Returns 0, or -1.
int board_unlink(const char* path);

/// system(3): runs `command` with /bin/sh and waits. Returns the raw wait status, or -1.
int board_system(const char* command);

/// fork(2) followed, in the child, by execve(2) of `path`; a child whose execve fails exits with 127.
/// Returns the child's process id, or -1 when no child could be made.
pid_t board_spawn(const char* path, char* const argv[], char* const envp[]);

/// waitpid(2).
pid_t board_waitpid(pid_t pid, int* status, int options);

/// kill(2).
int board_kill(pid_t pid, int signal);

/// usleep(3), for what the service does at intervals, and for pauses that the gateway needs. It goes through this seam
/// so that a clock that is moved by hand passes it at once. Returns 0.
int board_usleep(useconds_t microseconds);

/// clock_gettime(2) of CLOCK_MONOTONIC. Returns 0.
int board_clock_gettime(struct timespec* now);

/// pthread_cond_timedwait(3) of a condition variable whose clock is CLOCK_MONOTONIC; may wake early,
/// as that function may. Returns 0, or ETIMEDOUT once `deadline` has passed.
int board_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex, const struct timespec* deadline);

/// vsyslog(3).
void board_vsyslog(int priority, const char* format, va_list arguments);

/// syslog(3).
void board_syslog(int priority, const char* format, ...) __attribute__((format(printf, 2, 3)));
}
