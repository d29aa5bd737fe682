#include "simulator/journal.h"

#include <chrono>
#include <cstdio>

#include "simulator/clock.h"
#include "simulator/database.h"

namespace gateway {

namespace {

using namespace std::chrono_literals;

constexpr std::int64_t keptRows = 100'000;
constexpr std::size_t pendingLimit = 1'000;
constexpr auto gatheringTime = 20ms;

} // namespace

Journal::~Journal() {
  {
    const std::lock_guard lock(m_mutex);
    m_isEnding = true;
  }
  m_recorded.notify_one();
  if (m_writer.joinable())
    m_writer.join();
  flush();
}

void Journal::record(std::string_view kind, std::string_view text) {
  std::size_t pending = 0;
  {
    const std::lock_guard lock(m_mutex);
    m_pending.push_back({0, std::string(kind), std::string(text), clock::wallUs() / 1000});
    pending = m_pending.size();
    if (m_writesByItself && !m_writer.joinable())
      m_writer = std::thread([this] { writeNowAndThen(); });
  }
  if (pending == 1 && m_writesByItself)
    m_recorded.notify_one();
  if (pending >= pendingLimit)
    flush();
}

void Journal::writeNowAndThen() {
  std::unique_lock lock(m_mutex);
  while (!m_isEnding) {
    m_recorded.wait(lock, [this] { return m_isEnding || !m_pending.empty(); });
    m_recorded.wait_for(lock, gatheringTime, [this] { return m_isEnding; });
    lock.unlock();
    flush();
    lock.lock();
  }
}

void Journal::flush() {
  try {
    write();
  } catch (const DatabaseError& error) {
    std::fprintf(stderr, "simulator: the journal can't be written: %s\n", error.what());
  }
}

void Journal::write() {
  const auto held = m_database.lock(); // what another thread is writing is committed then
  {
    const std::lock_guard lock(m_mutex);
    if (m_pending.empty())
      return;
  }
  Transaction transaction(m_database);
  std::vector<JournalRow> rows;
  {
    const std::lock_guard lock(m_mutex);
    rows.swap(m_pending);
  }
  for (const JournalRow& row : rows)
    insert(row);
  trim();
  transaction.commit();
}

void Journal::insert(std::string_view kind, std::string_view text) {
  insert({0, std::string(kind), std::string(text), clock::wallUs() / 1000});
}

void Journal::insert(const JournalRow& row) {
  Query(m_database, "INSERT INTO journal (time_ms, kind, text) VALUES (?, ?, ?)", row.timeMs, row.kind, row.text)
      .next();
}

void Journal::trim() {
  Query(m_database, "DELETE FROM journal WHERE id <= (SELECT max(id) FROM journal) - ?", keptRows).next();
}

std::vector<JournalRow> Journal::rows(std::int64_t afterId, std::string_view kind) {
  flush();
  Query query(m_database, "SELECT id, kind, text, time_ms FROM journal WHERE id > ? AND ? IN ('', kind) ORDER BY id",
              afterId, kind);
  std::vector<JournalRow> rows;
  while (query.next())
    rows.push_back({query.number(0), std::string(query.text(1)), std::string(query.text(2)), query.number(3)});
  return rows;
}

} // namespace gateway
