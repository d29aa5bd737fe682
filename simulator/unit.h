#pragma once
// A simulated unit: a folder with one SQLite file in it that holds all of its state. The service
// (through the simulator's side of platform/), the gateway program and the tests all work on that
// file, each in its own process and from any thread.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace gateway {

/// One row of the journal: what happened on the unit, in order.
struct JournalRow {
  std::int64_t id;
  std::string kind; ///< "request", "command", "write", "remove", "signal", "reboot", "log", ...
  std::string text;
  std::int64_t timeMs; ///< wall clock, milliseconds since 1970
  bool operator==(const JournalRow&) const = default;
};

// Kinds of boots.
constexpr std::string_view normalBoot = "normal";
constexpr std::string_view safeBoot = "safe boot";

// Environment of a process that works on a unit.
constexpr const char* unitVariable = "GATEWAY_UNIT";             ///< folder of the unit
constexpr const char* supervisorVariable = "GATEWAY_SUPERVISOR"; ///< process id that the service must not outlive
constexpr const char* unitProcessVariable = "GATEWAY_PROCESS";   ///< set for a process that the unit itself runs

/// Exit status of a service whose unit reboots.
constexpr int rebootExitStatus = 86;

class Database;
class Faults;
class Journal;
class Tables;

class Unit {
public:
  /// A unit in factory state that lives in memory, for tests. A reboot does not end the process.
  static std::unique_ptr<Unit> inMemory();
  /// The unit kept in `folder`; created there in factory state when there is none. Throws
  /// std::runtime_error when that can't be done.
  static std::unique_ptr<Unit> open(const std::filesystem::path& folder);
  static bool exists(const std::filesystem::path& folder);
  /// The SQLite file of a unit in `folder`.
  static std::filesystem::path file(const std::filesystem::path& folder);
  /// Removes the unit kept in `folder`, and nothing else of the folder. No process may be working on it.
  static void remove(const std::filesystem::path& folder);

  ~Unit();
  Unit(const Unit&) = delete;
  Unit& operator=(const Unit&) = delete;

  // The parts of the unit's state.

  Database& database();
  Journal& journalBook();
  Faults& faults();
  Tables& tables();

  // Store tables, past all roles and transactions. `row` counts data rows from 0.

  /// Text of a cell; nothing when there is no such table, row or column.
  std::optional<std::string> cell(std::string_view table, int row, std::string_view column);
  /// Sets a cell, adding rows up to `row`. Throws std::runtime_error for an unknown table or column.
  void setCell(std::string_view table, int row, std::string_view column, std::string_view value);
  /// Removes every row of a store table.
  void clearTable(std::string_view table);
  /// Names of a table's columns in the order of their positions; empty when there is no such table.
  std::vector<std::string> columns(std::string_view table);

  // Faults: named rows that make one thing fail until they are switched off.

  /// Throws std::runtime_error for a name that is none; simulator/faults.h has the names.
  void setFault(std::string_view name, bool on);
  bool hasFault(std::string_view name);

  // Journal.

  void record(std::string_view kind, std::string_view text);
  /// Rows after `afterId`, oldest first; of one kind only, unless `kind` is empty.
  std::vector<JournalRow> journal(std::int64_t afterId = 0, std::string_view kind = {});

  /// The unit's folder; empty for a unit in memory.
  std::filesystem::path folder() const;
  /// The file or folder that stands for an absolute path of the gateway's file system ("/NVRM/...").
  std::filesystem::path gatewayPath(std::string_view path) const;

  /// What a reboot of the unit does to this process, after it has been journalled.
  std::function<void()> onReboot;
  /// Has init reboot the unit a moment later; null: at once.
  std::function<void()> onRestart;

  /// Journals a reboot of the unit and carries it out, into what was prepared for it.
  void reboot();
  /// The same by the unit's init, which ends one process after the other: the one that asked for it goes on for a
  /// moment.
  void restart();

private:
  struct State;
  explicit Unit(std::unique_ptr<State> state);
  std::unique_ptr<State> m_state;
};

/// The unit that this process works on: the one installed with useUnit(), else the one in the folder
/// that the environment variable GATEWAY_UNIT names. Ends the process with a message when there is none.
Unit& theUnit();
/// Makes `unit` the process's unit and returns the previous one.
std::unique_ptr<Unit> useUnit(std::unique_ptr<Unit> unit);

} // namespace gateway
