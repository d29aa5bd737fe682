#include "simulator/database.h"

#include <algorithm>
#include <utility>

namespace gateway {

namespace {

constexpr int busyTimeoutMs = 10'000;
constexpr int sharedIndexBlock = 32 * 1024;
constexpr std::size_t sharedIndexHeaderWords = 12;
constexpr std::uint64_t hashFactor = 0x100000001B3;

// Several processes work on the file. A commit is durable against the end of any of them; the page cache is small
// because the service's memory is that of a small device.
constexpr const char* connectionSettings = "PRAGMA journal_mode = WAL;"
                                           "PRAGMA synchronous = NORMAL;"
                                           "PRAGMA cache_size = -256;"
                                           "PRAGMA temp_store = MEMORY;";

void configureLibrary() {
  static std::once_flag once;
  std::call_once(once, [] { sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0); });
}

// Where an image says whether it has a write-ahead log, which memory has not, and how it says so.
constexpr std::size_t journalModeBytes[] = {18, 19};
constexpr char withoutLog = 1;

} // namespace

std::unique_ptr<Database> Database::inMemory() {
  return std::unique_ptr<Database>(new Database(":memory:"));
}

std::unique_ptr<Database> Database::fromImage(std::string_view image) {
  std::unique_ptr<Database> database = inMemory();
  auto* const bytes = static_cast<unsigned char*>(sqlite3_malloc64(image.size()));
  if (bytes == nullptr)
    throw DatabaseError("out of memory");
  std::ranges::copy(image, bytes);
  const auto size = static_cast<sqlite3_int64>(image.size());
  constexpr unsigned flags = SQLITE_DESERIALIZE_FREEONCLOSE | SQLITE_DESERIALIZE_RESIZEABLE;
  if (sqlite3_deserialize(database->m_connection, "main", bytes, size, size, flags) != SQLITE_OK)
    database->fail("image");
  return database;
}

std::unique_ptr<Database> Database::open(const std::filesystem::path& file) {
  std::unique_ptr<Database> database(new Database(file.string()));
  database->runScript(connectionSettings);
  database->findSharedIndex();
  return database;
}

Database::Database(const std::string& name) {
  configureLibrary();
  constexpr int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
  if (sqlite3_open_v2(name.c_str(), &m_connection, flags, nullptr) != SQLITE_OK) {
    const std::string message = m_connection != nullptr ? sqlite3_errmsg(m_connection) : "out of memory";
    sqlite3_close(m_connection);
    throw DatabaseError(name + ": " + message);
  }
  sqlite3_busy_timeout(m_connection, busyTimeoutMs);
}

Database::~Database() {
  for (const auto& [sql, statement] : m_statements)
    sqlite3_finalize(statement);
  sqlite3_close(m_connection);
}

void Database::fail(std::string_view what) const {
  throw DatabaseError(std::string(what) + ": " + sqlite3_errmsg(m_connection));
}

void Database::copyTo(Database& other) {
  const std::scoped_lock held(m_mutex, other.m_mutex);
  sqlite3_backup* const copy = sqlite3_backup_init(other.m_connection, "main", m_connection, "main");
  if (copy == nullptr)
    other.fail("copy");
  sqlite3_backup_step(copy, -1);
  if (sqlite3_backup_finish(copy) != SQLITE_OK)
    other.fail("copy");
  other.stateChanged();
}

std::string Database::image() {
  const std::lock_guard held(m_mutex);
  sqlite3_int64 size = 0;
  const std::unique_ptr<unsigned char, decltype(&sqlite3_free)> bytes(sqlite3_serialize(m_connection, "main", &size, 0),
                                                                      sqlite3_free);
  if (bytes == nullptr)
    fail("image");
  std::string image(reinterpret_cast<const char*>(bytes.get()), static_cast<std::size_t>(size));
  for (const std::size_t index : journalModeBytes)
    image.at(index) = withoutLog;
  return image;
}

void Database::runScript(const char* sql) {
  const std::lock_guard lock(m_mutex);
  if (sqlite3_exec(m_connection, sql, nullptr, nullptr, nullptr) != SQLITE_OK)
    fail("script");
  ++m_ownChanges;
}

void Database::findSharedIndex() {
  Query(*this, "PRAGMA user_version").next(); // SQLite maps the index when it first reads
  sqlite3_file* file = nullptr;
  if (sqlite3_file_control(m_connection, "main", SQLITE_FCNTL_FILE_POINTER, &file) != SQLITE_OK)
    fail("file");
  volatile void* index = nullptr;
  if (file->pMethods->xShmMap(file, 0, sharedIndexBlock, 0, &index) != SQLITE_OK || index == nullptr)
    fail("shared index");
  m_sharedIndex = index;
}

// Each commit changes the header of the shared index, whose format is a documented one; looking at it spares a read
// transaction, which costs several system calls, for each thing that has stayed as it was. A header that is seen half
// changed is different from the one before it as well, and from the one after it.
Database::Version Database::version() {
  const std::lock_guard lock(m_mutex);
  if (m_sharedIndex == nullptr)
    return {0, m_ownChanges};
  std::uint64_t sum = 0;
  const auto* const words = static_cast<const volatile std::uint32_t*>(m_sharedIndex);
  for (std::size_t word = 0; word < sharedIndexHeaderWords; ++word)
    sum = sum * hashFactor + words[word];
  return {sum, m_ownChanges};
}

std::vector<std::string> Database::firstRow(std::string_view sql) {
  const auto held = lock();
  const Version now = version();
  const auto found = m_rows.find(sql);
  if (found != m_rows.end() && found->second.version == now)
    return found->second.values;
  std::vector<std::string> values;
  Query query(*this, sql);
  for (int column = 0, columns = query.next() ? query.columns() : 0; column < columns; ++column)
    values.emplace_back(query.text(column));
  m_rows.insert_or_assign(std::string(sql), Row{now, values});
  return values;
}

std::int64_t Database::stateChanged() {
  const std::lock_guard lock(m_mutex);
  ++m_ownChanges;
  return sqlite3_changes64(m_connection);
}

sqlite3_stmt* Database::take(std::string_view sql) {
  if (const auto found = m_statements.find(sql); found != m_statements.end() && found->second != nullptr)
    return std::exchange(found->second, nullptr);
  sqlite3_stmt* statement = nullptr;
  if (sqlite3_prepare_v3(m_connection, sql.data(), static_cast<int>(sql.size()), SQLITE_PREPARE_PERSISTENT, &statement,
                         nullptr) != SQLITE_OK)
    fail(sql);
  return statement;
}

void Database::giveBack(std::string_view sql, sqlite3_stmt* statement) {
  sqlite3_reset(statement);
  sqlite3_clear_bindings(statement);
  const auto found = m_statements.find(sql);
  if (found == m_statements.end())
    m_statements.emplace(sql, statement);
  else if (found->second == nullptr)
    found->second = statement;
  else
    sqlite3_finalize(statement);
}

bool Query::next() {
  switch (sqlite3_step(m_statement)) {
  case SQLITE_ROW:
    return true;
  case SQLITE_DONE:
    return false;
  default:
    m_database.fail(m_sql);
  }
}

std::string_view Query::text(int column) const {
  const auto* const bytes = static_cast<const char*>(sqlite3_column_blob(m_statement, column));
  const auto size = static_cast<std::size_t>(sqlite3_column_bytes(m_statement, column));
  return bytes == nullptr ? std::string_view() : std::string_view(bytes, size);
}

void Query::bind(std::int64_t value) {
  sqlite3_bind_int64(m_statement, ++m_bound, value);
}

void Query::bind(std::string_view value) {
  // A view without characters may point nowhere, which would bind NULL.
  const char* const text = value.empty() ? "" : value.data();
  if (sqlite3_bind_text64(m_statement, ++m_bound, text, value.size(), SQLITE_TRANSIENT, SQLITE_UTF8) != SQLITE_OK)
    m_database.fail(m_sql);
}

Transaction::Transaction(Database& database)
    : m_lock(database.m_mutex), m_database(database), m_isOpen(sqlite3_get_autocommit(database.m_connection) != 0) {
  if (m_isOpen)
    Query(m_database, "BEGIN IMMEDIATE").next();
}

Transaction::~Transaction() {
  if (!m_isOpen)
    return;
  sqlite3_exec(m_database.m_connection, "ROLLBACK", nullptr, nullptr, nullptr);
  m_database.stateChanged();
}

void Transaction::commit() {
  if (!m_isOpen)
    return;
  Query(m_database, "COMMIT").next();
  m_isOpen = false;
}

} // namespace gateway
