#include "simulator/wire_setting.h"

#include <stdexcept>
#include <string>

#include "simulator/database.h"
#include "simulator/unit.h"

namespace gateway {

namespace {

constexpr int all = 100;

void requirePercent(int percent) {
  if (percent < 0 || percent > all)
    throw std::runtime_error(std::to_string(percent) + " is no percentage");
}

void requireTime(int ms) {
  if (ms < 0 || ms > longestDelayMs)
    throw std::runtime_error("a datagram is delayed by up to " + std::to_string(longestDelayMs) + " ms");
}

} // namespace

WireSetting wireSetting(Database& database) {
  Query query(database, "SELECT loss, duplicate, delay_ms, jitter_ms, seed, era FROM wire");
  if (!query.next())
    throw DatabaseError("the unit has no wire");
  return {.loss = static_cast<int>(query.number(0)),
          .duplicate = static_cast<int>(query.number(1)),
          .delayMs = static_cast<int>(query.number(2)),
          .jitterMs = static_cast<int>(query.number(3)),
          .seed = static_cast<std::uint32_t>(query.number(4)),
          .era = query.number(5)};
}

void setWireLoss(Unit& unit, int percent) {
  requirePercent(percent);
  execute(unit.database(), "UPDATE wire SET loss = ?, era = era + 1", percent);
  unit.record("wire", "loss " + std::to_string(percent));
}

void setWireDuplication(Unit& unit, int percent) {
  requirePercent(percent);
  execute(unit.database(), "UPDATE wire SET duplicate = ?, era = era + 1", percent);
  unit.record("wire", "duplicate " + std::to_string(percent));
}

void setWireDelay(Unit& unit, int delayMs, int jitterMs) {
  requireTime(delayMs);
  requireTime(jitterMs);
  execute(unit.database(), "UPDATE wire SET delay_ms = ?, jitter_ms = ?, era = era + 1", delayMs, jitterMs);
  unit.record("wire", "delay " + std::to_string(delayMs) + " jitter " + std::to_string(jitterMs));
}

void setWireSeed(Unit& unit, std::uint32_t seed) {
  execute(unit.database(), "UPDATE wire SET seed = ?, era = era + 1", seed);
  unit.record("wire", "seed " + std::to_string(seed));
}

void clearWire(Unit& unit) {
  execute(unit.database(), "UPDATE wire SET loss = 0, duplicate = 0, delay_ms = 0, jitter_ms = 0, era = era + 1");
  unit.record("wire", "clear");
}

} // namespace gateway
