#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "simulator/wire_link.h"
#include "simulator/wire_recorder.h"
#include "simulator/wire_ring.h"
#include "simulator/wire_setting.h"
#include "tests/unit/unit_folder.h"
#include "userapps/FTM/FTM_Apis.h"

using namespace gateway;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

sockaddr_in station(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  return address;
}

std::uint64_t record(WireRecorder& recorder, const std::string& bytes, Fate fate = Fate::passed) {
  return recorder.record(true, station(40000), bytes.data(), bytes.size(), fate);
}

class GatewayWire : public UnitFolder {
protected:
  std::filesystem::path file() const { return folder() / wireFile; }

  template <class Value>
  void overwrite(std::size_t offset, Value value) const {
    const int descriptor = open(file().c_str(), O_WRONLY);
    EXPECT_EQ(pwrite(descriptor, &value, sizeof value, static_cast<off_t>(offset)), ssize_t{sizeof value});
    close(descriptor);
  }

  static std::size_t offsetOf(std::uint64_t number) {
    return offsetof(RingFile, slots) + slotOf(number) * sizeof(RingSlot);
  }

  std::vector<std::uint64_t> numbers() const {
    std::vector<std::uint64_t> found;
    for (const Datagram& datagram : WireReader(folder()).poll())
      found.push_back(datagram.number);
    return found;
  }
};

} // namespace

// The record.

TEST_F(GatewayWire, ReadsWhatWasRecorded) {
  WireRecorder recorder(folder());
  record(recorder, "request");
  recorder.record(false, station(40001), "answer", 6, Fate::duplicated);
  const std::vector<Datagram> datagrams = WireReader(folder()).poll();
  ASSERT_THAT(datagrams, SizeIs(2));
  EXPECT_EQ(datagrams[0].number, 1U);
  EXPECT_TRUE(datagrams[0].toUnit);
  EXPECT_EQ(datagrams[0].station, "127.0.0.1:40000");
  EXPECT_EQ(datagrams[0].fate, Fate::passed);
  EXPECT_EQ(datagrams[0].bytes, "request");
  EXPECT_GT(datagrams[0].timeUs, 1'700'000'000'000'000);
  EXPECT_EQ(datagrams[1].number, 2U);
  EXPECT_FALSE(datagrams[1].toUnit);
  EXPECT_EQ(datagrams[1].station, "127.0.0.1:40001");
  EXPECT_EQ(datagrams[1].fate, Fate::duplicated);
  EXPECT_EQ(datagrams[1].bytes, "answer");
}

TEST_F(GatewayWire, KeepsEmptyDatagramsAndTheFirstBytesOfLongOnes) {
  WireRecorder recorder(folder());
  record(recorder, "");
  record(recorder, std::string(2000, 'x'));
  const std::vector<Datagram> datagrams = WireReader(folder()).poll();
  ASSERT_THAT(datagrams, SizeIs(2));
  EXPECT_EQ(datagrams[0].bytes, "");
  EXPECT_EQ(datagrams[1].bytes, std::string(longestDatagram, 'x'));
}

TEST_F(GatewayWire, CorrectsAFateThatTurnedOutOtherwise) {
  WireRecorder recorder(folder());
  recorder.setFate(record(recorder, "x"), Fate::lost);
  EXPECT_EQ(WireReader(folder()).poll().at(0).fate, Fate::lost);
}

TEST_F(GatewayWire, ReadsOnlyWhatIsNew) {
  WireReader reader(folder());
  EXPECT_THAT(reader.poll(), IsEmpty()); // no unit has run
  WireRecorder recorder(folder());
  record(recorder, "a");
  EXPECT_THAT(reader.poll(), SizeIs(1));
  EXPECT_THAT(reader.poll(), IsEmpty());
  WireReader late(folder(), WireReader::fromNow);
  record(recorder, "b");
  EXPECT_EQ(reader.poll().at(0).bytes, "b");
  EXPECT_EQ(late.poll().at(0).bytes, "b");
  WireReader after(folder(), 1);
  EXPECT_EQ(after.poll().at(0).bytes, "b");
}

TEST_F(GatewayWire, KeepsTheNewestDatagrams) {
  WireRecorder recorder(folder());
  constexpr std::uint64_t count = keptDatagrams * 2 + 10;
  for (std::uint64_t number = 1; number <= count; ++number)
    record(recorder, std::to_string(number));
  const std::vector<Datagram> datagrams = WireReader(folder()).poll();
  ASSERT_THAT(datagrams, SizeIs(keptDatagrams));
  std::uint64_t expected = count - keptDatagrams;
  for (const Datagram& datagram : datagrams) {
    EXPECT_EQ(datagram.number, ++expected);
    EXPECT_EQ(datagram.bytes, std::to_string(datagram.number));
  }
}

TEST_F(GatewayWire, NeverShowsHalfADatagram) {
  WireRecorder recorder(folder());
  std::atomic<bool> isEnding{false};
  std::thread writer([&] {
    for (unsigned number = 0; !isEnding; ++number)
      record(recorder, std::string(longestDatagram, static_cast<char>('a' + number % 26)));
  });
  WireReader reader(folder());
  std::size_t read = 0;
  while (read < 3 * keptDatagrams)
    for (const Datagram& datagram : reader.poll()) {
      const char letter = static_cast<char>('a' + (datagram.number - 1) % 26);
      ASSERT_EQ(datagram.bytes, std::string(longestDatagram, letter));
      ++read;
    }
  isEnding = true;
  writer.join();
}

TEST_F(GatewayWire, LeavesOutADatagramWhoseWriterWasKilled) {
  {
    WireRecorder recorder(folder());
    for (const char* const text : {"a", "b", "c"})
      record(recorder, text);
  }
  overwrite(offsetOf(2), std::uint64_t{0});
  EXPECT_THAT(numbers(), ElementsAre(1, 3));
}

TEST_F(GatewayWire, GoesOnWithTheNumbersOfTheServiceBefore) {
  {
    WireRecorder recorder(folder());
    for (const char* const text : {"a", "b"})
      record(recorder, text);
  }
  overwrite(offsetof(RingFile, header.newest), std::uint64_t{1}); // killed before it came to this
  WireRecorder recorder(folder());
  EXPECT_THAT(numbers(), ElementsAre(1, 2));
  EXPECT_EQ(record(recorder, "c"), 3U);
  EXPECT_THAT(numbers(), ElementsAre(1, 2, 3));
}

TEST_F(GatewayWire, GoesOnAfterAServiceThatWasKilled) {
  Child child = inChild([this](const ProcessLine& line) -> int {
    WireRecorder recorder(folder());
    line.tell(static_cast<int>(record(recorder, "a")));
    for (;;)
      record(recorder, "more");
  });
  EXPECT_EQ(child.line().hear(), 1);
  child.kill();
  const std::vector<std::uint64_t> before = numbers();
  ASSERT_THAT(before, testing::Not(IsEmpty()));
  WireRecorder recorder(folder());
  EXPECT_GE(record(recorder, "b"), before.back() + 1);
  EXPECT_EQ(WireReader(folder()).poll().back().bytes, "b");
}

TEST_F(GatewayWire, IsWrittenByOneProcessOnly) {
  const WireRecorder recorder(folder());
  EXPECT_THROW(WireRecorder another(folder()), std::runtime_error);
}

TEST_F(GatewayWire, SeesAUnitThatWasPutBackToFactoryState) {
  WireReader reader(folder());
  {
    WireRecorder recorder(folder());
    record(recorder, "a");
    record(recorder, "b");
    EXPECT_THAT(reader.poll(), SizeIs(2));
  }
  Unit::remove(folder());
  WireRecorder recorder(folder());
  for (const char* const bytes : {"c", "d", "e"}) // more than there were before
    record(recorder, bytes);
  EXPECT_EQ(reader.poll().at(0).bytes, "c");
}

// Files that somebody has damaged.

TEST_F(GatewayWire, ReadsNothingInAFileThatIsNone) {
  for (const std::string& content : {std::string(), std::string("x"), std::string(100'000, '\xFF')}) {
    std::ofstream(file(), std::ios::trunc) << content;
    EXPECT_THAT(WireReader(folder()).poll(), IsEmpty());
    EXPECT_THAT(activeTests(folder()), IsEmpty());
  }
  WireRecorder recorder(folder()); // makes it anew
  record(recorder, "a");
  EXPECT_THAT(numbers(), ElementsAre(1));
}

TEST_F(GatewayWire, EndsWhereTheFileWasCut) {
  {
    WireRecorder recorder(folder());
    for (int count = 0; count < 10; ++count)
      record(recorder, "x");
  }
  std::filesystem::resize_file(file(), offsetOf(4) + 5);
  EXPECT_THAT(numbers(), ElementsAre(1, 2, 3));
}

TEST_F(GatewayWire, LeavesOutWhatCanBeNoDatagram) {
  {
    WireRecorder recorder(folder());
    for (int count = 0; count < 4; ++count)
      record(recorder, "x");
  }
  overwrite(offsetOf(1) + offsetof(RingSlot, length), std::uint16_t{longestDatagram + 1});
  overwrite(offsetOf(2) + offsetof(RingSlot, fate), std::uint8_t{4});
  overwrite(offsetOf(3), std::uint64_t{3 + keptDatagrams});
  EXPECT_THAT(numbers(), ElementsAre(4));
}

TEST_F(GatewayWire, DoesNotBelieveANumberThatCannotBe) {
  {
    WireRecorder recorder(folder());
    record(recorder, "a");
  }
  for (const std::uint64_t newest : {~std::uint64_t{0}, numberLimit}) {
    overwrite(offsetof(RingFile, header.newest), newest);
    EXPECT_THAT(numbers(), IsEmpty());
  }
  overwrite(offsetOf(7), numberLimit * 2 + 7); // in the slot of number 7
  WireRecorder recorder(folder());
  EXPECT_EQ(record(recorder, "b"), 2U);
}

// Active tests.

TEST_F(GatewayWire, NamesTheActiveTestsWhileAServiceLives) {
  EXPECT_THAT(activeTests(folder()), IsEmpty());
  {
    WireRecorder recorder(folder());
    EXPECT_THAT(activeTests(folder()), IsEmpty());
    recorder.setActiveTests(ledTestMask | throughputTestMask | multiHybridTestMask | voiceTestMask);
    EXPECT_THAT(activeTests(folder()), ElementsAre("LED", "THROUGH_PUT", "VOIP"));
  }
  EXPECT_THAT(activeTests(folder()), IsEmpty()); // it has ended
  const WireRecorder next(folder());
  EXPECT_THAT(activeTests(folder()), IsEmpty()); // and its tests with it
}

// Fates.

namespace {

std::vector<Fate> fates(const WireSetting& setting, bool toUnit, int count) {
  WireLink link;
  std::vector<Fate> drawn;
  for (int number = 0; number < count; ++number)
    drawn.push_back(link.next(toUnit, setting).fate());
  return drawn;
}

} // namespace

TEST(GatewayWireLink, DoesNothingUnlessItIsTold) {
  EXPECT_THAT(fates({}, true, 1000), Each(Fate::passed));
}

TEST(GatewayWireLink, DoesTheSameForTheSameSeed) {
  const WireSetting setting{.loss = 20, .duplicate = 20, .delayMs = 0, .jitterMs = 0, .seed = 7};
  WireSetting other = setting;
  other.seed = 8;
  EXPECT_EQ(fates(setting, true, 500), fates(setting, true, 500));
  EXPECT_NE(fates(setting, true, 500), fates(other, true, 500));
  EXPECT_NE(fates(setting, true, 500), fates(setting, false, 500));
}

TEST(GatewayWireLink, DrawsForEachDirectionByItself) {
  const WireSetting setting{.loss = 50, .seed = 3};
  WireLink link;
  std::vector<Fate> toUnit;
  for (int number = 0; number < 200; ++number) {
    toUnit.push_back(link.next(true, setting).fate());
    for (int answers = 0; answers < number % 3; ++answers)
      link.next(false, setting);
  }
  EXPECT_EQ(toUnit, fates(setting, true, 200));
}

TEST(GatewayWireLink, StartsOverWhenTheSettingWasChanged) {
  WireSetting setting{.loss = 50, .seed = 3, .era = 1};
  WireLink link;
  for (int number = 0; number < 77; ++number)
    link.next(true, setting);
  setting.era = 2;
  std::vector<Fate> drawn;
  for (int number = 0; number < 100; ++number)
    drawn.push_back(link.next(true, setting).fate());
  EXPECT_EQ(drawn, fates(setting, true, 100));
}

TEST(GatewayWireLink, DoesItAsOftenAsItIsTold) {
  constexpr int count = 20'000;
  const std::vector<Fate> drawn = fates({.loss = 10, .duplicate = 30}, true, count);
  EXPECT_NEAR(static_cast<double>(std::ranges::count(drawn, Fate::lost)), 0.1 * count, 0.01 * count);
  EXPECT_NEAR(static_cast<double>(std::ranges::count(drawn, Fate::duplicated)), 0.3 * 0.9 * count, 0.01 * count);
  EXPECT_THAT(fates({.loss = 100}, false, 1000), Each(Fate::lost));
  EXPECT_THAT(fates({.duplicate = 100}, false, 1000), Each(Fate::duplicated));
}

TEST(GatewayWireLink, LosesTheSameDatagramsWhateverElseItDoes) {
  const std::vector<Fate> lossOnly = fates({.loss = 30}, true, 500);
  const std::vector<Fate> both = fates({.loss = 30, .duplicate = 50, .delayMs = 5, .jitterMs = 9}, true, 500);
  for (std::size_t number = 0; number < lossOnly.size(); ++number)
    EXPECT_EQ(lossOnly[number] == Fate::lost, both[number] == Fate::lost);
}

TEST(GatewayWireLink, DelaysByTheTimeAndUpToTheJitterBesides) {
  WireLink link;
  const WireSetting setting{.duplicate = 50, .delayMs = 10, .jitterMs = 5};
  std::chrono::microseconds least = std::chrono::hours(1);
  std::chrono::microseconds most{0};
  for (int number = 0; number < 2000; ++number) {
    const WirePlan plan = link.next(true, setting);
    EXPECT_EQ(plan.fate(), plan.copies == 2 ? Fate::duplicated : Fate::delayed);
    least = std::min(least, plan.delays[0]);
    most = std::max(most, plan.delays[0]);
  }
  EXPECT_GE(least, std::chrono::milliseconds(10));
  EXPECT_LT(least, std::chrono::microseconds(10'100));
  EXPECT_LE(most, std::chrono::milliseconds(15));
  EXPECT_GT(most, std::chrono::microseconds(14'900));
}

TEST(GatewayWireLink, LetsDatagramsArriveInTheOrderOfTheirTimes) {
  InFlight<int> inFlight;
  const InFlight<int>::Time start;
  using std::chrono::milliseconds;
  inFlight.add(start + milliseconds(20), 1);
  inFlight.add(start + milliseconds(10), 2);
  inFlight.add(start + milliseconds(10), 3);
  EXPECT_EQ(inFlight.nextArrival(), start + milliseconds(10));
  EXPECT_EQ(inFlight.take(start + milliseconds(9)), std::nullopt);
  EXPECT_EQ(inFlight.take(start + milliseconds(10)), 2);
  EXPECT_EQ(inFlight.take(start + milliseconds(10)), 3);
  EXPECT_EQ(inFlight.take(start + milliseconds(10)), std::nullopt);
  EXPECT_EQ(inFlight.take(start + milliseconds(30)), 1);
  EXPECT_TRUE(inFlight.isEmpty());
}

// The setting.

TEST(GatewayWireSetting, IsKeptByTheUnit) {
  const auto unit = Unit::inMemory();
  EXPECT_TRUE(wireSetting(unit->database()).isClean());
  const std::int64_t era = wireSetting(unit->database()).era;
  setWireLoss(*unit, 20);
  setWireDuplication(*unit, 5);
  setWireDelay(*unit, 30, 10);
  setWireSeed(*unit, 4'000'000'000);
  const WireSetting setting = wireSetting(unit->database());
  EXPECT_EQ(setting.loss, 20);
  EXPECT_EQ(setting.duplicate, 5);
  EXPECT_EQ(setting.delayMs, 30);
  EXPECT_EQ(setting.jitterMs, 10);
  EXPECT_EQ(setting.seed, 4'000'000'000);
  EXPECT_EQ(setting.era, era + 4);
  clearWire(*unit);
  EXPECT_TRUE(wireSetting(unit->database()).isClean());
  EXPECT_EQ(wireSetting(unit->database()).seed, 4'000'000'000);
  std::vector<std::string> rows;
  for (const JournalRow& row : unit->journal(0, "wire"))
    rows.push_back(row.text);
  EXPECT_THAT(rows, ElementsAre("loss 20", "duplicate 5", "delay 30 jitter 10", "seed 4000000000", "clear"));
}

TEST(GatewayWireSetting, RefusesWhatCannotBe) {
  const auto unit = Unit::inMemory();
  EXPECT_THROW(setWireLoss(*unit, 101), std::runtime_error);
  EXPECT_THROW(setWireLoss(*unit, -1), std::runtime_error);
  EXPECT_THROW(setWireDuplication(*unit, 101), std::runtime_error);
  EXPECT_THROW(setWireDelay(*unit, -1, 0), std::runtime_error);
  EXPECT_THROW(setWireDelay(*unit, 0, longestDelayMs + 1), std::runtime_error);
  EXPECT_TRUE(wireSetting(unit->database()).isClean());
  EXPECT_THAT(unit->journal(0, "wire"), IsEmpty());
}
