#pragma once
// A scenario: what a file says is done to a unit, when, and what has to come of it. docs/simulator.md has the format.

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace gateway {

/// What is waited for or has to be so.
struct Condition {
  enum class Kind { row, ready, led, cell, status };
  Kind kind = Kind::ready;
  std::string name{};   ///< kind of the row, LED, table, label
  std::string column{}; ///< of a table
  int row = 0;          ///< of a table
  std::string text{};   ///< part of a row or of a line of the status screen; "on" or "off"; the cell
};

struct Step {
  enum class Kind { action, refusal, read, write, wait, expect };
  enum class Start { now, at, after };
  using Time = std::chrono::milliseconds;

  int line = 0;
  std::string text{}; ///< its words without the time it starts at
  Start start = Start::now;
  Time time{0}; ///< since the start of the scenario, or after the step before
  Kind kind = Kind::action;
  std::vector<std::string> words{}; ///< of an action, or of one that has to be refused
  std::vector<std::string> undo{};  ///< the action that takes it back after `duration`; empty: none
  Time duration{0};
  std::string file{}; ///< that is read or written
  std::string content{};
  std::optional<std::string> error{};                        ///< the transfer has to end with
  std::vector<std::pair<std::string, std::string>> values{}; ///< elements of a file that is read, by their paths
  Condition condition{};
  Time limit{0}; ///< for how long a condition is waited for
};

struct BadLine {
  int line;
  std::string reason;
};

struct Scenario {
  std::vector<Step> steps;
  std::vector<BadLine> badLines;
};

/// Reads a scenario; `folder` is where the files are that it writes to the unit. Changes nothing.
Scenario parseScenario(std::string_view text, const std::filesystem::path& folder);

} // namespace gateway
