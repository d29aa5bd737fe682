// Part of the service where its tests' coverage is measured: has it write its counters where it ends without doing so.
#include <pthread.h>
#include <unistd.h>

#include <csignal>
#include <thread>

extern "C" {
void __gcov_dump();
[[noreturn]] void __real__exit(int status);

void __wrap__exit(int status) {
  __gcov_dump();
  __real__exit(status);
}
}

namespace {

/// Waits for SIGTERM in a thread, which unlike a signal handler may call anything, and then ends as it would have.
class TerminationWaiter {
public:
  TerminationWaiter() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::thread([signals] {
      int signal = 0;
      sigwait(&signals, &signal);
      __gcov_dump();
      pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
      raise(signal);
    }).detach();
  }
};

const TerminationWaiter terminationWaiter;

} // namespace
