#pragma once
// What the pages have to be told of a unit as it changes. One thread at a time.

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <vector>

#include "simulator/database.h"
#include "simulator/panel/json.h"
#include "simulator/panel/output_tail.h"
#include "simulator/panel/source.h"
#include "simulator/panel/state.h"
#include "simulator/transfers.h"
#include "simulator/wire.h"

namespace gateway {

class Changes {
public:
  struct Event {
    const char* name;
    Json data;
  };

  // How much of each a page is given when it connects, and at once later.
  static constexpr std::int64_t journalRows = 200;
  static constexpr std::size_t transferRecords = 50;

  explicit Changes(UnitSource& source);

  /// What has changed since the last call, in the order in which pages are to be told.
  std::vector<Event> next();
  /// All that a page has to know which is told everything that comes out of next() from now on. next() has been called.
  Json whole() const;
  /// Whether the unit could be read the last time.
  bool hasUnit() const { return m_hasUnit; }

private:
  using Clock = std::chrono::steady_clock;

  /// The datagrams of one unit.
  struct Wire {
    explicit Wire(const std::filesystem::path& folder) : reader(folder) {}
    WireReader reader;
    Transfers transfers;
    std::uint64_t revision = 0; ///< up to which pages have been told
  };

  bool look(Unit& unit, Life& life, std::vector<Event>& events);
  bool isDue(Database::Version version) const;
  void addState(Json state, std::vector<Event>& events);
  void addJournal(Unit& unit, std::vector<Event>& events);
  void addOutput(std::vector<Event>& events);
  void addTransfers(std::vector<Event>& events);

  UnitSource& m_source;
  std::uint64_t m_generation = 0;
  bool m_hasUnit = false;
  Database::Version m_version;
  Clock::time_point m_readAt;
  Surroundings m_surroundings;
  Json m_state = Json::object();
  std::vector<JournalRow> m_journal; ///< the newest rows
  std::unique_ptr<OutputTail> m_output;
  std::unique_ptr<Wire> m_wire;
};

/// What other processes know of the unit in a folder.
Surroundings surroundingsOf(const std::filesystem::path& folder);

} // namespace gateway
