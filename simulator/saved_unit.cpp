#include "simulator/saved_unit.h"

#include <unistd.h>

#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

#include "simulator/database.h"
#include "simulator/journal.h"
#include "simulator/supervisor_lock.h"
#include "simulator/unit.h"
#include "simulator/whole_file.h"

namespace gateway {

namespace {

namespace fs = std::filesystem;

// A file is a line of text and the image of a database: that of the unit, with the file system in a table of it.
constexpr std::string_view mark = "gateway unit ";
constexpr const char* headerFormat = "gateway unit version %d, %zu bytes, checksum %016" PRIx64 "\n";
constexpr const char* fileTable = "CREATE TABLE saved_files (path TEXT, kind TEXT, permissions INTEGER, content TEXT)";
constexpr const char* newPlace = "new";
constexpr const char* oldPlace = "old";

// Kinds of files in the order in which they are put back: nothing is ever written through a link.
constexpr std::string_view folderKind = "1 folder";
constexpr std::string_view regularKind = "2 file";
constexpr std::string_view linkKind = "3 link";

/// FNV-1a, which no change of a single byte escapes.
std::uint64_t checksum(std::string_view bytes) {
  std::uint64_t sum = 0xCBF29CE484222325;
  for (const char byte : bytes)
    sum = (sum ^ static_cast<unsigned char>(byte)) * 0x100000001B3;
  return sum;
}

int versionOf(Database& database) {
  return std::stoi(database.firstRow("PRAGMA user_version").at(0));
}

std::string header(int version, std::string_view image) {
  char line[128];
  std::snprintf(line, sizeof line, headerFormat, version, image.size(), checksum(image));
  return line;
}

/// A folder of its own beside what is to be replaced, in which the new one is made. It is removed with what is left in
/// it; nothing that was there before is touched.
class Workshop {
public:
  explicit Workshop(const fs::path& beside) {
    std::string name = beside.string() + ".XXXXXX";
    if (mkdtemp(name.data()) == nullptr)
      throw std::runtime_error(beside.string() + " can't be written");
    m_path = name;
  }
  ~Workshop() {
    std::error_code ignored;
    fs::remove_all(m_path, ignored);
  }
  Workshop(const Workshop&) = delete;
  Workshop& operator=(const Workshop&) = delete;

  fs::path place(const char* name) const { return m_path / name; }

private:
  fs::path m_path;
};

void addFile(Database& image, const fs::path& root, const fs::directory_entry& entry) {
  std::string_view kind;
  std::string content;
  if (entry.is_symlink()) {
    kind = linkKind;
    content = fs::read_symlink(entry.path()).string();
  } else if (entry.is_directory()) {
    kind = folderKind;
  } else if (entry.is_regular_file()) {
    kind = regularKind;
    content = readWholeFile(entry.path());
  } else {
    return;
  }
  const auto permissions = static_cast<std::int64_t>(entry.symlink_status().permissions());
  execute(image, "INSERT INTO saved_files VALUES (?, ?, ?, ?)", entry.path().lexically_relative(root).string(), kind,
          permissions, content);
}

/// A path of the saved file system below `root`, wherever it wants to lead to.
fs::path below(const fs::path& root, std::string_view path) {
  return root / (fs::path("/") / path).lexically_normal().relative_path();
}

void makeFiles(Database& image, const fs::path& root) {
  fs::create_directories(root);
  Query query(image, "SELECT path, kind, permissions, content FROM saved_files ORDER BY kind, path");
  while (query.next()) {
    const fs::path path = below(root, query.text(0));
    if (query.text(1) == linkKind) {
      fs::create_symlink(query.text(3), path);
      continue;
    }
    if (query.text(1) == folderKind)
      fs::create_directories(path);
    else if (query.text(1) == regularKind)
      writeWholeFile(path, query.text(3));
    else
      throw std::runtime_error("the file holds a kind of file that no unit has");
  }
}

/// Once everything is in its place, since a folder may not let anybody write to it. Nothing that a file from somewhere
/// else brings along may run as the user who loads it.
void setPermissions(Database& image, const fs::path& root) {
  Query query(image, "SELECT path, permissions FROM saved_files WHERE kind <> ? ORDER BY path DESC", linkKind);
  while (query.next())
    fs::permissions(below(root, query.text(0)), static_cast<fs::perms>(query.number(1)) & fs::perms::all);
}

/// The image that a file holds.
std::unique_ptr<Database> readImage(const fs::path& file) {
  const std::string bytes = readWholeFile(file);
  if (!bytes.starts_with(mark))
    throw std::runtime_error(file.string() + " holds no unit");
  int version = 0;
  std::size_t size = 0;
  std::uint64_t sum = 0;
  const std::size_t start = bytes.find('\n') + 1;
  const std::string_view image = std::string_view(bytes).substr(start);
  if (std::sscanf(bytes.substr(0, start).c_str(), headerFormat, &version, &size, &sum) != 3 ||
      bytes.substr(0, start) != header(version, image))
    throw std::runtime_error(file.string() + " is damaged");
  if (version != versionOf(Unit::inMemory()->database()))
    throw std::runtime_error(file.string() + " holds a unit of another version");
  return Database::fromImage(image);
}

} // namespace

void saveUnit(Unit& unit, const fs::path& file) {
  if (fs::exists(file) && !fs::is_regular_file(file))
    throw std::runtime_error(file.string() + " is no file that could be replaced");
  unit.journalBook().flush();
  const std::unique_ptr<Database> image = Database::inMemory();
  unit.database().copyTo(*image);
  image->runScript(fileTable);
  const fs::path root = unit.gatewayPath("/").parent_path();
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root))
    addFile(*image, root, entry);
  const std::string bytes = image->image();
  const Workshop workshop(file);
  writeWholeFile(workshop.place(newPlace), header(versionOf(*image), bytes) + bytes);
  fs::rename(workshop.place(newPlace), file);
}

void loadUnit(const fs::path& folder, const fs::path& file) {
  const std::unique_ptr<Database> image = readImage(file);
  fs::create_directories(folder);
  const SupervisorLock lock(folder);
  if (!lock.isHeld())
    throw std::runtime_error("the unit in " + folder.string() + " runs; it can be loaded once it has ended");
  const std::unique_ptr<Unit> unit = Unit::open(folder);
  const fs::path root = unit->gatewayPath("/").parent_path();
  const Workshop workshop(root);
  makeFiles(*image, workshop.place(newPlace));
  setPermissions(*image, workshop.place(newPlace));
  image->runScript("DROP TABLE saved_files");
  image->copyTo(unit->database());
  fs::rename(root, workshop.place(oldPlace));
  fs::rename(workshop.place(newPlace), root);
}

} // namespace gateway
