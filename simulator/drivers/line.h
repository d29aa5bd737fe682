#pragma once
// The DSL line. It goes down, trains for a while and comes up by the unit's clock; the store's "Xcvr" table follows it.

#include <cstdint>
#include <string_view>

namespace gateway {

class Database;

enum class LineState { down, training, up };

constexpr std::int64_t lineTrainingMs = 20'000;

/// State of the line at this moment, as it then also stands in the store.
LineState lineState(Database& database);
/// Puts the line into a state; a line that starts to train comes up lineTrainingMs later.
void setLineState(Database& database, LineState state);
/// Takes the line, and the store with it, to where it is at this moment.
void settleLine(Database& database);

std::string_view lineStateName(LineState state);

} // namespace gateway
