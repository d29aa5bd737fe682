#include "simulator/saved_unit.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <stdexcept>
#include <string>

#include "simulator/commands.h"
#include "simulator/database.h"
#include "simulator/status.h"
#include "simulator/supervisor_lock.h"
#include "tests/unit/unit_folder.h"

namespace fs = std::filesystem;
using gateway::loadUnit;
using gateway::saveUnit;
using gateway::Unit;
using testing::AnyOf;
using testing::HasSubstr;

namespace {

std::string contentOf(const fs::path& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

void write(const fs::path& file, const std::string& bytes) {
  std::ofstream(file, std::ios::binary) << bytes;
}

class GatewaySavedUnit : public UnitFolder {
protected:
  fs::path unitFolder() const { return folder() / "unit"; }
  fs::path file() const { return folder() / "saved"; }

  /// All that the unit keeps: the database as a text, then its files.
  std::string state() const {
    const auto unit = Unit::open(unitFolder());
    std::string text;
    gateway::Query tables(unit->database(), "SELECT name, sql FROM sqlite_master WHERE type = 'table' ORDER BY name");
    while (tables.next()) {
      text.append(tables.text(1)).append("\n");
      gateway::Query rows(unit->database(), "SELECT * FROM \"" + std::string(tables.text(0)) + "\"");
      while (rows.next())
        for (int column = 0; column < rows.columns(); ++column)
          text.append(rows.text(column)).append(column + 1 < rows.columns() ? "|" : "\n");
    }
    const fs::path root = unit->gatewayPath("/");
    std::map<fs::path, std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
      const auto permissions = static_cast<unsigned>(entry.symlink_status().permissions());
      const std::string content = entry.is_symlink()        ? "to " + fs::read_symlink(entry).string()
                                  : entry.is_regular_file() ? contentOf(entry)
                                                            : "folder";
      files[entry.path()] = std::to_string(permissions) + " " + content;
    }
    for (const auto& [path, content] : files)
      text.append(path.string()).append(": ").append(content).append("\n");
    return text;
  }

  /// Changes a bit of everything that a unit keeps.
  void handle(const std::string& serial) const {
    const auto unit = Unit::open(unitFolder());
    using Words = std::vector<std::string>;
    for (const Words& words :
         {Words{"set", "ProductionData", "SerialNum", serial}, Words{"press", "reset"}, Words{"line", "down"},
          Words{"usb", "plug", "--vendor", serial, "--model", "Disk"}, Words{"port", "2", "up"}, Words{"traffic", "on"},
          Words{"traffic", "off"}, Words{"radio", "ssid", serial}, Words{"station", "join"},
          Words{"fault", "on", "commit"}, Words{"circuit", "new", "1.8.36", "02:1a:2b:00:00:09"}})
      gateway::runAction(*unit, words);
    write(unit->gatewayPath("/NVRM/" + serial), std::string("bytes\0\n\xff", 8) + serial);
    fs::create_directories(unit->gatewayPath("/etc/" + serial));
    fs::create_symlink("/NVRM/" + serial, unit->gatewayPath("/etc/link to " + serial));
    fs::permissions(unit->gatewayPath("/NVRM/" + serial), fs::perms::owner_read | fs::perms::owner_exec);
  }

  void save() const { saveUnit(*Unit::open(unitFolder()), file()); }

  /// Puts other words into the saved file wherever some stand in it, and makes it right again for who reads it.
  void forge(const std::string& words, const std::string& others) const {
    std::string image = contentOf(file());
    image.erase(0, image.find('\n') + 1);
    ASSERT_EQ(words.size(), others.size());
    ASSERT_NE(image.find(words), std::string::npos);
    for (std::size_t at = image.find(words); at != std::string::npos; at = image.find(words))
      image.replace(at, words.size(), others);
    std::uint64_t sum = 0xCBF29CE484222325;
    for (const char byte : image)
      sum = (sum ^ static_cast<unsigned char>(byte)) * 0x100000001B3;
    const std::string version = Unit::inMemory()->database().firstRow("PRAGMA user_version").at(0);
    char digits[32];
    std::snprintf(digits, sizeof digits, "%016llx", static_cast<unsigned long long>(sum));
    write(file(), "gateway unit version " + version + ", " + std::to_string(image.size()) + " bytes, checksum " +
                      digits + "\n" + image);
  }

  /// What lies in the folder.
  std::set<std::string> names() const {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder()))
      names.insert(entry.path().filename());
    return names;
  }

  std::string refusal() const {
    try {
      loadUnit(unitFolder(), file());
    } catch (const std::runtime_error& error) {
      return error.what();
    }
    return "loaded";
  }

  /// Loading has to be refused with a reason, and change nothing.
  void expectRefusal(const char* reason) const {
    const std::string before = state();
    EXPECT_THAT(refusal(), HasSubstr(reason));
    EXPECT_EQ(state(), before);
  }
};

} // namespace

TEST_F(GatewaySavedUnit, IsAfterwardsWhatItWas) {
  handle("4711");
  const std::string before = state();
  save();
  EXPECT_EQ(state(), before);
  handle("4712");
  fs::remove(Unit::open(unitFolder())->gatewayPath("/NVRM/4711"));
  ASSERT_NE(state(), before);
  loadUnit(unitFolder(), file());
  EXPECT_EQ(state(), before);
  // And it is a unit like any other.
  const auto unit = Unit::open(unitFolder());
  unit->setCell("ProductionData", 0, "SerialNum", "4713");
  EXPECT_EQ(unit->database().firstRow("PRAGMA journal_mode").at(0), "wal");
  EXPECT_EQ(unit->database().firstRow("PRAGMA integrity_check").at(0), "ok");
}

TEST_F(GatewaySavedUnit, CanBeLoadedWhereThereIsNone) {
  handle("4711");
  const std::string before = state();
  save();
  fs::remove_all(unitFolder());
  loadUnit(unitFolder(), file());
  EXPECT_EQ(state(), before);
}

TEST_F(GatewaySavedUnit, ShowsToConnectionsThatAreOpen) {
  handle("4711");
  save();
  const auto unit = Unit::open(unitFolder());
  unit->setCell("ProductionData", 0, "SerialNum", "4712");
  const std::string changed = gateway::statusText(*unit);
  const auto version = unit->database().version();
  loadUnit(unitFolder(), file());
  EXPECT_NE(unit->database().version(), version);
  EXPECT_EQ(unit->cell("ProductionData", 0, "SerialNum"), "4711");
  EXPECT_NE(gateway::statusText(*unit), changed);
}

TEST_F(GatewaySavedUnit, IsReplacedAsAWhole) {
  handle("4711");
  save();
  const std::string first = contentOf(file());
  handle("4712");
  save();
  EXPECT_NE(contentOf(file()), first);
  EXPECT_THAT(names(), testing::UnorderedElementsAre("unit", "saved"));
  EXPECT_THROW(saveUnit(*Unit::open(unitFolder()), folder() / "no" / "folder"), std::runtime_error);
}

TEST_F(GatewaySavedUnit, ReplacesNothingButAFile) {
  handle("4711");
  fs::create_directories(folder() / "saved.new");
  write(folder() / "saved.new" / "note", "kept");
  save();
  loadUnit(unitFolder(), file());
  EXPECT_EQ(contentOf(folder() / "saved.new" / "note"), "kept");
  EXPECT_THAT(names(), testing::UnorderedElementsAre("unit", "saved", "saved.new"));
  const auto unit = Unit::open(unitFolder());
  EXPECT_THROW(saveUnit(*unit, folder() / "saved.new"), std::runtime_error);
  const fs::path line = folder() / "line";
  ASSERT_EQ(mkfifo(line.c_str(), 0600), 0);
  EXPECT_THROW(saveUnit(*unit, line), std::runtime_error);
  EXPECT_TRUE(fs::is_fifo(line));
}

TEST_F(GatewaySavedUnit, OfMemoryCanBeSaved) {
  const auto unit = Unit::inMemory();
  unit->setCell("ProductionData", 0, "SerialNum", "4711");
  write(unit->gatewayPath("/NVRM/current.cfg"), "text");
  saveUnit(*unit, file());
  loadUnit(unitFolder(), file());
  const auto loaded = Unit::open(unitFolder());
  EXPECT_EQ(loaded->cell("ProductionData", 0, "SerialNum"), "4711");
  EXPECT_EQ(contentOf(loaded->gatewayPath("/NVRM/current.cfg")), "text");
}

TEST_F(GatewaySavedUnit, IsNotLoadedIntoAUnitThatRuns) {
  handle("4711");
  save();
  {
    const gateway::SupervisorLock supervisor(unitFolder());
    expectRefusal("runs");
  }
  EXPECT_EQ(refusal(), "loaded");
}

TEST_F(GatewaySavedUnit, IsNotLoadedFromAFileThatIsNone) {
  handle("4711");
  EXPECT_FALSE(fs::exists(file()));
  expectRefusal("can't be read");
  fs::create_directory(file());
  expectRefusal("can't be read");
  fs::remove(file());
  for (const char* const text : {"", "gateway", "some text\n", "SQLite format 3"}) {
    write(file(), text);
    expectRefusal("holds no unit");
  }
}

TEST_F(GatewaySavedUnit, IsNotLoadedFromAFileThatIsCutShort) {
  handle("4711");
  save();
  const std::string whole = contentOf(file());
  for (std::size_t size = 13; size < whole.size(); size += size < 90 ? 7 : whole.size() / 17) {
    write(file(), whole.substr(0, size));
    EXPECT_THAT(refusal(), HasSubstr("damaged")) << size;
  }
  write(file(), whole.substr(0, whole.size() - 1));
  expectRefusal("damaged");
  write(file(), whole + "x");
  expectRefusal("damaged");
}

TEST_F(GatewaySavedUnit, IsNotLoadedFromAFileThatIsDamaged) {
  handle("4711");
  save();
  const std::string whole = contentOf(file());
  for (std::size_t index = 13; index < whole.size(); index += index < 90 ? 7 : whole.size() / 17) {
    std::string damaged = whole;
    damaged[index] = static_cast<char>(damaged[index] ^ 1);
    write(file(), damaged);
    EXPECT_THAT(refusal(), AnyOf(HasSubstr("damaged"), HasSubstr("another version"))) << index;
  }
  expectRefusal("damaged");
}

TEST_F(GatewaySavedUnit, IsNotLoadedFromAFileOfAnotherVersion) {
  const auto other = Unit::inMemory();
  other->database().runScript("PRAGMA user_version = 99");
  saveUnit(*other, file());
  expectRefusal("another version");
}

TEST_F(GatewaySavedUnit, NeverLeadsOutOfItsFolder) {
  handle("4711");
  save();
  forge("NVRM/4711", "../../out");
  EXPECT_EQ(refusal(), "loaded");
  EXPECT_FALSE(fs::exists(folder() / "out"));
  EXPECT_TRUE(fs::exists(Unit::open(unitFolder())->gatewayPath("/out")));
}

TEST_F(GatewaySavedUnit, HasNoFileOfAKindThatCouldBeWrittenThroughALink) {
  handle("4711");
  save();
  forge("2 file", "4 file");
  expectRefusal("kind of file");
}

TEST_F(GatewaySavedUnit, BringsNoFileThatRunsAsTheUserWhoLoadsIt) {
  const auto file = [this] { return Unit::open(unitFolder())->gatewayPath("/NVRM/program"); };
  write(file(), "program");
  fs::permissions(file(), fs::perms::owner_all | fs::perms::set_uid | fs::perms::set_gid);
  save();
  loadUnit(unitFolder(), this->file());
  EXPECT_EQ(fs::status(file()).permissions(), fs::perms::owner_all);
}

TEST_F(GatewaySavedUnit, IsNotReadFromAFileWithoutEnd) {
  EXPECT_THROW(loadUnit(unitFolder(), "/dev/zero"), std::runtime_error);
  EXPECT_FALSE(fs::exists(unitFolder()));
}
