#include "simulator/unit.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <utility>

#include "simulator/board_calls.h"
#include "simulator/database.h"
#include "simulator/drivers/gpio.h"
#include "simulator/faults.h"
#include "simulator/journal.h"
#include "simulator/store/embedded_sql.h"
#include "simulator/store/tables.h"
#include "simulator/wire.h"

namespace gateway {

namespace {

constexpr const char* databaseFile = "unit.db";
constexpr const char* lockFile = "unit.lock";
constexpr const char* gatewayRoot = "root";
constexpr int schemaVersion = 3;
constexpr std::chrono::milliseconds restartDelay{200}; // from the signal to init to the end of the service

/// Held while a unit is made, so that two processes don't make it twice.
class CreationLock {
public:
  explicit CreationLock(const std::filesystem::path& folder)
      : m_descriptor(::open((folder / lockFile).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644)) {
    if (m_descriptor < 0 || flock(m_descriptor, LOCK_EX) != 0)
      throw std::runtime_error("the unit's folder can't be written: " + folder.string());
  }
  ~CreationLock() { close(m_descriptor); }
  CreationLock(const CreationLock&) = delete;
  CreationLock& operator=(const CreationLock&) = delete;

private:
  int m_descriptor;
};

int versionOf(Database& database) {
  Query query(database, "PRAGMA user_version");
  query.next();
  return static_cast<int>(query.number(0));
}

void makeFactoryState(Database& database) {
  Transaction transaction(database);
  database.runScript(schemaSql);
  database.runScript(factorySql);
  Tables(database).keepAsFactory();
  database.runScript(("PRAGMA user_version = " + std::to_string(schemaVersion)).c_str());
  transaction.commit();
}

std::filesystem::path privateFolder() {
  std::string name = (std::filesystem::temp_directory_path() / "gateway-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr)
    throw std::runtime_error("no temporary folder can be made");
  return name;
}

void makeFileSystem(const std::filesystem::path& folder) {
  std::filesystem::create_directories(folder / gatewayRoot / "NVRM");
}

std::unique_ptr<Database> openDatabase(const std::filesystem::path& folder) {
  std::filesystem::create_directories(folder);
  const CreationLock lock(folder);
  std::unique_ptr<Database> database = Database::open(Unit::file(folder));
  const int version = versionOf(*database);
  if (version == 0)
    makeFactoryState(*database);
  else if (version != schemaVersion)
    throw std::runtime_error("the unit was made by another version: " + folder.string());
  makeFileSystem(folder);
  return database;
}

std::unique_ptr<Database> makeDatabase() {
  std::unique_ptr<Database> database = Database::inMemory();
  makeFactoryState(*database);
  return database;
}

} // namespace

struct Unit::State {
  explicit State(std::unique_ptr<Database> opened, std::filesystem::path unitFolder)
      : database(std::move(opened)), faults(*database), tables(*database), journal(*database, !unitFolder.empty()),
        isPrivate(unitFolder.empty()), folder(std::move(unitFolder)) {}
  ~State() {
    std::error_code ignored;
    if (isPrivate && !folder.empty())
      std::filesystem::remove_all(folder, ignored);
  }

  std::unique_ptr<Database> database;
  Faults faults;
  Tables tables;
  Journal journal;
  const bool isPrivate;
  std::mutex folderMutex;
  std::filesystem::path folder; ///< of a unit in memory: made when it is first needed
};

std::unique_ptr<Unit> Unit::inMemory() {
  return std::unique_ptr<Unit>(new Unit(std::make_unique<State>(makeDatabase(), std::filesystem::path())));
}

std::unique_ptr<Unit> Unit::open(const std::filesystem::path& folder) {
  const std::filesystem::path absolute = std::filesystem::absolute(folder);
  return std::unique_ptr<Unit>(new Unit(std::make_unique<State>(openDatabase(absolute), absolute)));
}

bool Unit::exists(const std::filesystem::path& folder) {
  return std::filesystem::exists(file(folder));
}

std::filesystem::path Unit::file(const std::filesystem::path& folder) {
  return folder / databaseFile;
}

void Unit::remove(const std::filesystem::path& folder) {
  const std::string database = file(folder).string();
  for (const char* const suffix : {"-wal", "-shm", ""})
    std::filesystem::remove(database + suffix);
  std::filesystem::remove(folder / wireFile);
  std::filesystem::remove_all(folder / gatewayRoot);
}

Unit::Unit(std::unique_ptr<State> state) : m_state(std::move(state)) {}
Unit::~Unit() = default;

Database& Unit::database() {
  return *m_state->database;
}

Journal& Unit::journalBook() {
  return m_state->journal;
}

Faults& Unit::faults() {
  return m_state->faults;
}

Tables& Unit::tables() {
  return m_state->tables;
}

std::optional<std::string> Unit::cell(std::string_view table, int row, std::string_view column) {
  const StoreTable* const found = findTable(table);
  if (found == nullptr)
    return std::nullopt;
  return tables().cell(*found, row, tables().findColumn(*found, column));
}

void Unit::setCell(std::string_view table, int row, std::string_view column, std::string_view value) {
  const StoreTable* const found = findTable(table);
  const int position = found != nullptr ? tables().findColumn(*found, column) : -1;
  if (position < 0 || row < 0)
    throw std::runtime_error("no such cell: " + writeText(table, row, column, value));
  Transaction transaction(database());
  for (int rows = tables().rows(*found); rows <= row; ++rows)
    tables().addRow(*found);
  tables().setCell(*found, row, position, value);
  transaction.commit();
}

void Unit::clearTable(std::string_view table) {
  if (const StoreTable* const found = findTable(table); found != nullptr)
    tables().clear(*found);
}

std::vector<std::string> Unit::columns(std::string_view table) {
  const StoreTable* const found = findTable(table);
  return found == nullptr ? std::vector<std::string>() : tables().columns(*found);
}

void Unit::setFault(std::string_view name, bool on) {
  faults().set(name, on);
}

bool Unit::hasFault(std::string_view name) {
  return faults().has(name);
}

void Unit::record(std::string_view kind, std::string_view text) {
  m_state->journal.record(kind, text);
}

std::vector<JournalRow> Unit::journal(std::int64_t afterId, std::string_view kind) {
  return m_state->journal.rows(afterId, kind);
}

std::filesystem::path Unit::folder() const {
  return m_state->isPrivate ? std::filesystem::path() : m_state->folder;
}

std::filesystem::path Unit::gatewayPath(std::string_view path) const {
  const std::lock_guard lock(m_state->folderMutex);
  if (m_state->folder.empty()) {
    m_state->folder = privateFolder();
    makeFileSystem(m_state->folder);
  }
  // Going up from the root stays at the root, so what is left never leads out of the folder.
  const std::filesystem::path inside = (std::filesystem::path("/") / path).lexically_normal();
  return m_state->folder / gatewayRoot / inside.relative_path();
}

void Unit::reboot() {
  const std::vector<std::string> prepared = database().firstRow("SELECT next_boot FROM flash");
  record("reboot", prepared.empty() ? normalBoot : std::string_view(prepared[0]));
  restartGpio(database());
  journalBook().flush();
  if (onReboot)
    onReboot();
}

void Unit::restart() {
  onRestart ? onRestart() : reboot();
}

namespace {

std::mutex processUnitMutex;
Unit* processUnit = nullptr; // never destroyed: other threads use it until the very end of the process

void writeJournalAtExit() {
  const std::lock_guard lock(processUnitMutex);
  if (processUnit != nullptr)
    processUnit->journalBook().flush();
}

/// A service that runs under a supervisor ends with it. It asks for that itself, because a program that was given the
/// right to bind its port loses what was asked for before it started.
void endWithSupervisor() {
  const char* const supervisor = std::getenv(supervisorVariable);
  if (supervisor == nullptr)
    return;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (std::to_string(getppid()) != supervisor)
    _exit(EXIT_FAILURE);
}

void rebootSoon() {
  std::this_thread::sleep_for(restartDelay); // as init takes its time; the service runs on meanwhile
  posixCall([] {
    theUnit().reboot();
    return 0;
  });
}

Unit* openUnitOfEnvironment() {
  const char* const folder = std::getenv(unitVariable);
  if (folder == nullptr || *folder == '\0') {
    std::fprintf(stderr, "simulator: %s must name the folder of the unit\n", unitVariable);
    _exit(EXIT_FAILURE);
  }
  endWithSupervisor();
  std::setvbuf(stdout, nullptr, _IOLBF, 0); // what the service prints comes out line by line, even at a reboot
  try {
    Unit* const unit = Unit::open(folder).release();
    unit->onReboot = [] { _exit(rebootExitStatus); };
    unit->onRestart = [] { std::thread(rebootSoon).detach(); };
    std::atexit(writeJournalAtExit);
    return unit;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "simulator: %s\n", error.what());
    _exit(EXIT_FAILURE);
  }
}

} // namespace

Unit& theUnit() {
  const std::lock_guard lock(processUnitMutex);
  if (processUnit == nullptr)
    processUnit = openUnitOfEnvironment();
  return *processUnit;
}

std::unique_ptr<Unit> useUnit(std::unique_ptr<Unit> unit) {
  const std::lock_guard lock(processUnitMutex);
  return std::unique_ptr<Unit>(std::exchange(processUnit, unit.release()));
}

} // namespace gateway
