#include "simulator/panel/life.h"

#include <string_view>

#include "simulator/database.h"
#include "simulator/journal.h"
#include "simulator/unit.h"

namespace gateway {

namespace {

constexpr std::string_view bootRow = "boot";
constexpr std::string_view readyRow = "ready";
constexpr std::string_view endRow = "end";

} // namespace

void Life::follow(Unit& unit) {
  unit.journalBook().flush();
  if (readOn(unit))
    return;
  beginAnew();
  readOn(unit);
}

void Life::beginAnew() {
  const std::uint64_t next = m_generation + 1;
  *this = Life();
  m_generation = next;
}

/// Returns whether the journal is still the one that has been followed: the last row of that is in it. It is looked for
/// in the same query, so that no other journal comes in between; new rows that do are read the next time.
bool Life::readOn(Unit& unit) {
  Query rows(unit.database(),
             "SELECT id, kind, CASE WHEN kind IN ('boot', 'end') THEN text ELSE '' END, time_ms FROM journal"
             " WHERE id >= ? ORDER BY id",
             m_lastRow);
  if (m_lastRow != 0 && !(rows.next() && rows.number(0) == m_lastRow && rows.number(3) == m_lastTime))
    return false;
  while (rows.next()) {
    m_lastRow = rows.number(0);
    m_lastTime = rows.number(3);
    take(std::string(rows.text(1)), std::string(rows.text(2)));
  }
  return true;
}

void Life::take(const std::string& kind, const std::string& text) {
  if (kind == bootRow) {
    m_stage = Stage::booting;
    m_bootKind = text;
    ++m_boots;
  } else if (kind == readyRow) {
    m_stage = Stage::up;
  } else if (kind == endRow) {
    m_stage = Stage::dark;
    m_lastEnd = text;
  }
}

const char* phaseOf(const Life& life, bool isSupervised) {
  if (!isSupervised)
    return offPhase;
  switch (life.stage()) {
  case Life::Stage::up:
    return "up";
  case Life::Stage::booting:
    return "booting";
  default:
    return "dark";
  }
}

} // namespace gateway
