#include <gmock/gmock.h>
#include <syslog.h>

#include <array>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "platform/board.h"
#include "simulator/journal.h"
#include "tests/unit/bench_unit.h"
#include "tests/unit/unit_folder.h"

using gateway::JournalRow;
using gateway::Unit;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using GatewayJournal = BenchUnit;
using GatewayJournalOfAFolder = UnitFolder;

constexpr std::size_t keptRows = 100'000;

std::vector<std::string> texts(const std::vector<JournalRow>& rows) {
  std::vector<std::string> result;
  result.reserve(rows.size());
  for (const JournalRow& row : rows)
    result.push_back(row.text);
  return result;
}

} // namespace

TEST_F(GatewayJournal, KeepsRowsInOrderAndByKind) {
  unit().record("a", "1");
  unit().record("b", "2");
  unit().record("a", "3");
  EXPECT_THAT(journal(), ElementsAre("a 1", "b 2", "a 3"));
  EXPECT_THAT(journal("a"), ElementsAre("1", "3"));
  EXPECT_THAT(journal("c"), IsEmpty());
}

TEST_F(GatewayJournal, GivesTheRowsAfterOneOfThem) {
  unit().record("a", "1");
  unit().record("a", "2");
  const std::vector<JournalRow> rows = unit().journal();
  unit().record("a", "3");
  EXPECT_THAT(texts(unit().journal(rows[0].id)), ElementsAre("2", "3"));
  EXPECT_THAT(texts(unit().journal(rows[1].id)), ElementsAre("3"));
}

TEST_F(GatewayJournal, SaysWhen) {
  const auto nowMs = [] {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
  };
  const auto before = nowMs();
  unit().record("a", "1");
  const std::int64_t time = unit().journal()[0].timeMs;
  EXPECT_GE(time, before);
  EXPECT_LE(time, nowMs());
}

TEST_F(GatewayJournal, KeepsTextsOfAllKindsOfBytes) {
  using namespace std::string_literals;
  const std::string text = "line\nfeed \x01\x1b[31m nul \0 high \xFF quote ' \" end"s;
  unit().record("log", text);
  EXPECT_EQ(unit().journal()[0].text, text);
}

TEST_F(GatewayJournal, HoldsLogLinesWithTheirPriority) {
  board_syslog(LOG_ERR, "%s failed: %d", "it", 7);
  board_syslog(LOG_LOCAL3 | LOG_DEBUG, "with a facility");
  board_syslog(LOG_EMERG, "first");
  EXPECT_THAT(journal(), ElementsAre("log err it failed: 7", "log debug with a facility", "log emerg first"));
}

TEST_F(GatewayJournal, HoldsLogLinesOfAnyLength) {
  for (const int length : {0, 510, 511, 512, 513, 20'000}) {
    const std::string text(static_cast<std::size_t>(length), 'x');
    board_syslog(LOG_INFO, "%s", text.c_str());
    EXPECT_EQ(journal("log").back(), "info " + text) << length;
  }
}

TEST_F(GatewayJournal, HoldsRowsOfAllThreads) {
  constexpr int perThread = 500;
  std::array<std::thread, 4> threads;
  for (std::thread& thread : threads)
    thread = std::thread([] {
      for (int number = 0; number < perThread; ++number)
        unit().record("a", std::to_string(number));
    });
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(journal().size(), threads.size() * perThread);
}

TEST_F(GatewayJournalOfAFolder, IsFlushedForOtherProcessesAlsoWhenItIsWritingByItself) {
  constexpr std::size_t rows = 900;
  const auto unit = Unit::open(folder());
  const auto reader = Unit::open(folder());
  for (std::size_t round = 1; round <= 20; ++round) {
    for (std::size_t row = 0; row < rows; ++row)
      unit->record("log", "line");
    std::this_thread::sleep_for(std::chrono::milliseconds(15 + round)); // about as long as it gathers rows
    unit->journalBook().flush();
    ASSERT_EQ(reader->journal(0, "log").size(), round * rows);
  }
}

TEST_F(GatewayJournalOfAFolder, KeepsTheNewestRowsOfAFlood) {
  constexpr int lines = 200'000;
  const auto unit = Unit::open(folder());
  for (int line = 0; line < lines; ++line)
    unit->record("log", "debug line " + std::to_string(line));
  const std::vector<JournalRow> rows = unit->journal();
  ASSERT_EQ(rows.size(), keptRows);
  EXPECT_EQ(rows.front().text, "debug line " + std::to_string(lines - static_cast<int>(keptRows)));
  EXPECT_EQ(rows.back().text, "debug line " + std::to_string(lines - 1));
}

TEST_F(GatewayJournalOfAFolder, ShowsAnotherProcessWhatIsRecordedWithoutBeingAsked) {
  const Child other = inChild([](const ProcessLine& line) {
    for (const char* const text : {"first", "second"}) {
      gateway::theUnit().record("a", text);
      line.hear(); // idle until then
    }
    return EXIT_SUCCESS;
  });
  const auto unit = Unit::open(folder());
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  for (const std::size_t rows : {1U, 2U}) {
    while (unit->journal(0, "a").size() < rows && std::chrono::steady_clock::now() < limit)
      std::this_thread::yield();
    EXPECT_EQ(unit->journal(0, "a").size(), rows);
    if (rows == 1)
      other.line().tell(0);
  }
}

TEST_F(GatewayJournalOfAFolder, HoldsACommandBeforeItRuns) {
  Child service = inChild([](const ProcessLine&) { return board_system("kill -9 $PPID"); });
  EXPECT_EQ(service.join(), -1);
  EXPECT_THAT(texts(Unit::open(folder())->journal()), ElementsAre("kill -9 $PPID"));
}

TEST_F(GatewayJournalOfAFolder, OutlivesTheProcessThatWroteIt) {
  { Unit::open(folder())->record("a", "1"); }
  EXPECT_THAT(texts(Unit::open(folder())->journal()), ElementsAre("1"));
}

TEST_F(GatewayJournalOfAFolder, HoldsWhatAProcessRecordedThatEndsByExit) {
  const std::string variable = std::string(gateway::unitVariable) + "=" + folder().string();
  EXPECT_EXIT(
      {
        putenv(const_cast<char*>(variable.c_str()));
        board_syslog(LOG_ERR, "bind() failed");
        std::exit(-1);
      },
      testing::ExitedWithCode(255), "");
  EXPECT_THAT(texts(Unit::open(folder())->journal()), ElementsAre("err bind() failed"));
}
