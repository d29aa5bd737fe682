#pragma once
// How bad the wire between the unit and its stations is, as the unit keeps it.

#include <cstdint>

namespace gateway {

class Database;
class Unit;

struct WireSetting {
  int loss = 0;           ///< percent of the datagrams that get lost
  int duplicate = 0;      ///< percent of the others that arrive twice
  int delayMs = 0;        ///< what each takes
  int jitterMs = 0;       ///< what it may take besides, at most
  std::uint32_t seed = 1; ///< the same seed does the same to the same datagrams
  std::int64_t era = 0;   ///< differs after each change; the draws start over then

  /// Whether the wire does nothing to any datagram.
  bool isClean() const { return loss == 0 && duplicate == 0 && delayMs == 0 && jitterMs == 0; }
};

constexpr int longestDelayMs = 60'000;

WireSetting wireSetting(Database& database);

// What somebody does to the wire. Every function journals it, works from any process, and throws std::runtime_error,
// with nothing changed, for what can't be.

void setWireLoss(Unit& unit, int percent);
void setWireDuplication(Unit& unit, int percent);
void setWireDelay(Unit& unit, int delayMs, int jitterMs);
void setWireSeed(Unit& unit, std::uint32_t seed);
/// Puts everything but the seed back to nothing.
void clearWire(Unit& unit);

} // namespace gateway
