#include "simulator/clock.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <map>
#include <mutex>

#include "platform/board.h"

namespace gateway::clock {

namespace {

constexpr std::int64_t nsPerSecond = 1'000'000'000;
constexpr std::int64_t nsPerMs = 1'000'000;
constexpr std::int64_t nsPerUs = 1'000;

// Never destroyed: threads wait until the very end of the process.
struct ManualClock {
  std::mutex mutex;
  std::int64_t nowNs = 0;
  std::multimap<std::int64_t, std::function<void()>> events; ///< by their time; those of one time in their order
};

std::atomic<bool> isManual{false};

ManualClock& manual() {
  static auto* const clock = new ManualClock;
  return *clock;
}

std::int64_t nanoseconds(const timespec& time) {
  return time.tv_sec * nsPerSecond + time.tv_nsec;
}

std::int64_t realNowNs() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return nanoseconds(now);
}

std::int64_t nowNs() {
  if (!isManual)
    return realNowNs();
  const std::lock_guard lock(manual().mutex);
  return manual().nowNs;
}

/// Takes the next event that is due by `limit`, moving the clock to its time; nothing when there is none.
std::function<void()> takeEvent(std::int64_t limit) {
  const std::lock_guard lock(manual().mutex);
  const auto next = manual().events.begin();
  if (next == manual().events.end() || next->first > limit)
    return nullptr;
  manual().nowNs = std::max(manual().nowNs, next->first);
  std::function<void()> event = std::move(next->second);
  manual().events.erase(next);
  return event;
}

void moveTo(std::int64_t timeNs) {
  const std::lock_guard lock(manual().mutex);
  manual().nowNs = std::max(manual().nowNs, timeNs);
}

void sleepUntil(std::int64_t timeNs) {
  while (const auto event = takeEvent(timeNs))
    event();
  moveTo(timeNs);
}

/// Runs the next event due by `limit` and those of the same time. Returns whether there was one.
bool runNextEvents(std::int64_t limit) {
  const auto event = takeEvent(limit);
  if (event == nullptr)
    return false;
  event();
  while (const auto next = takeEvent(nowNs()))
    next();
  return true;
}

void reset(bool toManual) {
  const std::lock_guard lock(manual().mutex);
  manual().nowNs = 0;
  manual().events.clear();
  isManual = toManual;
}

} // namespace

void useManual() {
  reset(true);
}

void useReal() {
  reset(false);
}

std::int64_t wallUs() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return nanoseconds(now) / nsPerUs;
}

std::int64_t nowMs() {
  return nowNs() / nsPerMs;
}

void at(std::int64_t ms, std::function<void()> event) {
  const std::lock_guard lock(manual().mutex);
  manual().events.emplace(ms * nsPerMs, std::move(event));
}

} // namespace gateway::clock

using namespace gateway::clock;

// The service's own pauses. A test moves the clock by hand: then nobody sleeps, the time goes on and its events happen.
int board_usleep(useconds_t microseconds) {
  if (isManual) {
    sleepUntil(nowNs() + microseconds * nsPerUs);
    return 0;
  }
  const timespec duration{.tv_sec = static_cast<time_t>(microseconds / 1'000'000),
                          .tv_nsec = static_cast<long>((microseconds % 1'000'000) * nsPerUs)};
  nanosleep(&duration, nullptr);
  return 0;
}

int board_clock_gettime(struct timespec* now) {
  const std::int64_t time = nowNs();
  now->tv_sec = static_cast<time_t>(time / nsPerSecond);
  now->tv_nsec = static_cast<long>(time % nsPerSecond);
  return 0;
}

int board_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex, const struct timespec* deadline) {
  if (!isManual)
    return pthread_cond_timedwait(condition, mutex, deadline);
  const std::int64_t limit = nanoseconds(*deadline);
  pthread_mutex_unlock(mutex); // an event may take it
  const bool wasWoken = runNextEvents(limit);
  if (!wasWoken)
    moveTo(limit);
  pthread_mutex_lock(mutex);
  return wasWoken ? 0 : ETIMEDOUT;
}
