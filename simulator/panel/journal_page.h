#pragma once
// Parts of a unit's journal, for who doesn't want all of it.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "simulator/panel/json.h"
#include "simulator/unit.h"

namespace gateway {

struct JournalQuestion {
  std::optional<std::int64_t> before{}; ///< rows before this number
  std::optional<std::int64_t> after{};  ///< rows after this number
  bool isFromStart = false;             ///< whether the first of these rows are wanted, not the last ones
  std::string kind{};                   ///< of this kind; empty: of all
  std::string text{};                   ///< with this in their texts, in capitals or not
  std::int64_t limit = 200;
};

constexpr std::int64_t longestJournalPage = 1000;

struct JournalPage {
  std::vector<JournalRow> rows; ///< oldest first
  bool hasMore = false;         ///< whether there are others that were asked for
};

/// The rows that are asked for, as many as may be. Throws DatabaseError.
JournalPage journalPage(Unit& unit, const JournalQuestion& question);

Json jsonOf(const std::vector<JournalRow>& rows);

} // namespace gateway
