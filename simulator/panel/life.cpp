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
  // In one query: rows that come in between are read the next time.
  Query rows(unit.database(),
             "SELECT id, kind, CASE WHEN kind IN ('boot', 'end') THEN text ELSE '' END FROM journal"
             " WHERE id > ? ORDER BY id",
             m_lastRow);
  while (rows.next()) {
    m_lastRow = rows.number(0);
    take(std::string(rows.text(1)), std::string(rows.text(2)));
  }
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

} // namespace gateway
