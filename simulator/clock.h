#pragma once
// The clock behind board.h. It is the machine's monotonic clock unless a test takes it in hand: then
// time stands still until somebody waits, and waiting moves it at once.

#include <cstdint>
#include <functional>

namespace gateway::clock {

/// Takes the clock in hand, at 0 ms and with no events; time moves only when a thread waits.
void useManual();
/// Gives the clock back to the machine and forgets all events.
void useReal();
/// Milliseconds on the clock.
std::int64_t nowMs();
/// Microseconds since 1970 on the machine's wall clock, which nothing takes in hand. Any thread.
std::int64_t wallUs();
/// Runs `event` on the thread whose waiting takes the manual clock to `ms` (events of one time in the
/// order given). A wait that an event falls into ends there for a condition variable, and goes on
/// for a sleep.
void at(std::int64_t ms, std::function<void()> event);

} // namespace gateway::clock
