#include "simulator/panel/journal_page.h"

#include <algorithm>
#include <limits>

#include "simulator/database.h"
#include "simulator/journal.h"

namespace gateway {

namespace {

constexpr std::string_view rowsBetween = "SELECT id, kind, text, time_ms FROM journal WHERE id > ? AND id < ?"
                                         " AND ? IN ('', kind) AND instr(lower(text), lower(?)) > 0 ORDER BY id ";

} // namespace

JournalPage journalPage(Unit& unit, const JournalQuestion& question) {
  unit.journalBook().flush();
  const std::int64_t limit = std::clamp<std::int64_t>(question.limit, 0, longestJournalPage);
  Query query(unit.database(), std::string(rowsBetween) + (question.isFromStart ? "ASC" : "DESC") + " LIMIT ?",
              question.after.value_or(std::numeric_limits<std::int64_t>::min()),
              question.before.value_or(std::numeric_limits<std::int64_t>::max()), question.kind, question.text,
              limit + 1);
  JournalPage page;
  while (query.next())
    page.rows.push_back({query.number(0), std::string(query.text(1)), std::string(query.text(2)), query.number(3)});
  page.hasMore = static_cast<std::int64_t>(page.rows.size()) > limit;
  if (page.hasMore)
    page.rows.pop_back();
  if (!question.isFromStart)
    std::ranges::reverse(page.rows);
  return page;
}

Json jsonOf(const std::vector<JournalRow>& rows) {
  Json list = Json::array();
  for (const JournalRow& row : rows)
    list.push_back({{"id", row.id}, {"time", row.timeMs}, {"kind", utf8Of(row.kind)}, {"text", utf8Of(row.text)}});
  return list;
}

} // namespace gateway
