#include "simulator/drivers/line.h"

#include <algorithm>
#include <array>

#include "simulator/clock.h"
#include "simulator/database.h"

namespace gateway {

namespace {

struct StateName {
  LineState state;
  std::string_view name;
  std::string_view storeText; ///< in "Xcvr"
};

constexpr std::array names{
    StateName{LineState::down, "down", "DOWN"},
    StateName{LineState::training, "training", "TRAIN"},
    StateName{LineState::up, "up", "UP"},
};

const StateName& nameOf(LineState state) {
  return *std::ranges::find(names, state, &StateName::state);
}

LineState stateNamed(std::string_view name) {
  const auto* const found = std::ranges::find(names, name, &StateName::name);
  if (found == names.end())
    throw DatabaseError("the line is in no known state");
  return found->state;
}

/// A start in the future is one of a clock that has started again since.
bool isTrained(std::int64_t sinceMs) {
  const std::int64_t now = clock::nowMs();
  return now < sinceMs || now - sinceMs >= lineTrainingMs;
}

bool isTraining(Database& database) {
  return !database.firstRow("SELECT 1 FROM line WHERE state = 'training'").empty();
}

LineState stateNow(Database& database) {
  Query query(database, "SELECT state, since_ms FROM line");
  if (!query.next())
    throw DatabaseError("the unit has no line");
  const LineState state = stateNamed(query.text(0));
  return state == LineState::training && isTrained(query.number(1)) ? LineState::up : state;
}

} // namespace

std::string_view lineStateName(LineState state) {
  return nameOf(state).name;
}

void setLineState(Database& database, LineState state) {
  Transaction transaction(database);
  execute(database, "UPDATE line SET state = ?, since_ms = ?", nameOf(state).name, clock::nowMs());
  execute(database,
          "UPDATE \"Xcvr\" SET \"State\" = ?1, \"SpeedDownstream\" = iif(?1 = 'UP', \"MaxSpeedDownstream\", '0'), "
          "\"SpeedUpstream\" = iif(?1 = 'UP', \"MaxSpeedUpstream\", '0')",
          nameOf(state).storeText);
  transaction.commit();
}

LineState lineState(Database& database) {
  settleLine(database);
  return stateNow(database);
}

void settleLine(Database& database) {
  if (isTraining(database) && stateNow(database) == LineState::up)
    setLineState(database, LineState::up);
}

} // namespace gateway
