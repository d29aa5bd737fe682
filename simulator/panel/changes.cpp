#include "simulator/panel/changes.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "simulator/clock.h"
#include "simulator/panel/journal_page.h"
#include "simulator/supervisor_lock.h"

namespace gateway {

namespace {

using namespace std::chrono_literals;

// Some things change with time alone: a line that trains comes up.
constexpr auto longestPause = 1s;
// To read the counts is to move them, so that there would be no end of changes while traffic is on.
constexpr auto trafficPause = 100ms;

Json jsonOf(const Transfer& transfer) {
  return {{"number", transfer.number},
          {"station", utf8Of(transfer.station)},
          {"file", utf8Of(transfer.file)},
          {"write", transfer.isWrite},
          {"bytes", transfer.bytes},
          {"blocks", transfer.blocks},
          {"repeats", transfer.repeats},
          {"start", transfer.startUs},
          {"end", transfer.endUs},
          {"outcome", outcomeName(transfer.outcome)},
          {"message", utf8Of(transfer.message)}};
}

/// The last ones of a list.
template <class List>
Json newest(const List& transfers) {
  const std::size_t left = transfers.size() - std::min(transfers.size(), Changes::transferRecords);
  Json records = Json::array();
  for (std::size_t i = left; i < transfers.size(); ++i)
    records.push_back(jsonOf(transfers[i]));
  return records;
}

template <class Lines>
Json linesOf(const Lines& lines) {
  Json list = Json::array();
  for (const std::string& line : lines)
    list.push_back(utf8Of(line));
  return list;
}

} // namespace

Surroundings surroundingsOf(const std::filesystem::path& folder) {
  return {.isSupervised = isSupervised(folder), .activeTests = activeTests(folder)};
}

Changes::Changes(UnitSource& source)
    : m_source(source), m_output(std::make_unique<OutputTail>(source.folder())),
      m_wire(std::make_unique<Wire>(source.folder())) {}

std::vector<Changes::Event> Changes::next() {
  std::vector<Event> events;
  const bool hadUnit = m_hasUnit;
  bool isAnother = false;
  try {
    isAnother = m_source.read([&](Unit& unit, Life& life) { return look(unit, life, events); });
    m_hasUnit = true;
  } catch (const NoUnit&) {
    m_hasUnit = false;
    m_generation = 0;
    addState(stateOfNothing(m_source.folder().string()), events);
  }
  if (isAnother) {
    m_wire = std::make_unique<Wire>(m_source.folder());
    m_output = std::make_unique<OutputTail>(m_source.folder());
  }
  addOutput(events);
  addTransfers(events);
  if (m_hasUnit && (isAnother || !hadUnit))
    return {{"state", whole()}};
  return events;
}

Json Changes::whole() const {
  Json state = m_state;
  state["journal"] = jsonOf(m_journal);
  state["output"] = linesOf(m_output->newest());
  state["transfers"] = newest(m_wire->transfers.all());
  return state;
}

/// Returns whether the unit is another one than the last time.
bool Changes::look(Unit& unit, Life& life, std::vector<Event>& events) {
  const Database::Version version = unit.database().version();
  Surroundings surroundings = surroundingsOf(m_source.folder());
  if (life.generation() == m_generation && surroundings == m_surroundings && !isDue(version))
    return false;
  life.follow(unit);
  const bool isAnother = life.generation() != m_generation;
  if (isAnother)
    m_journal.clear();
  m_generation = life.generation();
  m_version = version;
  m_readAt = Clock::now();
  m_surroundings = std::move(surroundings);
  addState(stateOf(unit, life, m_surroundings), events);
  addJournal(unit, events);
  return isAnother;
}

bool Changes::isDue(Database::Version version) const {
  const auto pause = Clock::now() - m_readAt;
  if (version == m_version)
    return pause >= longestPause;
  return pause >= trafficPause || !m_state.value("traffic", false);
}

void Changes::addState(Json state, std::vector<Event>& events) {
  Json changes = changedSections(m_state, state);
  m_state = std::move(state);
  if (!changes.empty())
    events.push_back({"change", std::move(changes)});
}

/// Of a flood of rows the newest ones.
void Changes::addJournal(Unit& unit, std::vector<Event>& events) {
  const std::int64_t last = m_journal.empty() ? 0 : m_journal.back().id;
  JournalPage page = journalPage(unit, {.after = last, .limit = journalRows});
  if (page.rows.empty())
    return;
  events.push_back({"journal", jsonOf(page.rows)});
  m_journal.insert(m_journal.end(), std::make_move_iterator(page.rows.begin()),
                   std::make_move_iterator(page.rows.end()));
  if (m_journal.size() > journalRows)
    m_journal.erase(m_journal.begin(), m_journal.end() - journalRows);
}

void Changes::addOutput(std::vector<Event>& events) {
  if (const std::vector<std::string> lines = m_output->poll(); !lines.empty())
    events.push_back({"output", linesOf(lines)});
}

void Changes::addTransfers(std::vector<Event>& events) {
  Transfers& transfers = m_wire->transfers;
  for (const Datagram& datagram : m_wire->reader.poll())
    transfers.add(datagram);
  transfers.passTime(clock::wallUs());
  if (transfers.revision() == m_wire->revision)
    return;
  events.push_back({"transfers", newest(transfers.changedSince(m_wire->revision))});
  m_wire->revision = transfers.revision();
}

} // namespace gateway
