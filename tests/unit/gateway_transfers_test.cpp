#include "simulator/transfers.h"

#include <gmock/gmock.h>

#include <random>
#include <string>
#include <vector>

using namespace gateway;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

std::string packet(int opcode, int number, const std::string& rest = "") {
  return std::string{'\0', static_cast<char>(opcode), static_cast<char>(number >> 8), static_cast<char>(number)} + rest;
}

std::string request(int opcode, const std::string& file) {
  return std::string{'\0', static_cast<char>(opcode)} + file + '\0' + "octet" + '\0';
}

std::string readRequest(const std::string& file) {
  return request(1, file);
}
std::string writeRequest(const std::string& file) {
  return request(2, file);
}
std::string data(int block, std::size_t length) {
  return packet(3, block, std::string(length, 'x'));
}
std::string ack(int block) {
  return packet(4, block);
}
std::string error(const std::string& text) {
  return packet(5, 0, text + '\0');
}

constexpr std::int64_t second = 1'000'000;

class GatewayTransfers : public testing::Test {
protected:
  void toUnit(const std::string& bytes, Fate fate = Fate::passed, const std::string& station = "10.0.0.1:1000") {
    add(true, bytes, fate, station);
  }
  void fromUnit(const std::string& bytes, Fate fate = Fate::passed, const std::string& station = "10.0.0.1:1000") {
    add(false, bytes, fate, station);
  }
  void pass(std::int64_t us) { m_timeUs += us; }
  std::int64_t now() const { return m_timeUs; }

  const Transfer& last() const { return m_transfers.all().back(); }
  Transfers& transfers() { return m_transfers; }
  void setNumber(std::uint64_t number) { m_number = number; }

private:
  void add(bool isToUnit, const std::string& bytes, Fate fate, const std::string& station) {
    m_transfers.add({++m_number, ++m_timeUs, isToUnit, station, fate, bytes});
  }

  Transfers m_transfers;
  std::uint64_t m_number = 0;
  std::int64_t m_timeUs = 0;
};

} // namespace

TEST_F(GatewayTransfers, FollowsARead) {
  toUnit(readRequest("FTM_ModemInfo.xml"));
  EXPECT_EQ(last().number, 1U);
  EXPECT_EQ(last().station, "10.0.0.1:1000");
  EXPECT_EQ(last().file, "FTM_ModemInfo.xml");
  EXPECT_FALSE(last().isWrite);
  EXPECT_EQ(last().outcome, Outcome::running);
  fromUnit(data(1, 512));
  EXPECT_EQ(last().blocks, 0); // it may still get lost
  toUnit(ack(1));
  EXPECT_EQ(last().blocks, 1);
  EXPECT_EQ(last().bytes, 512U);
  fromUnit(data(2, 488));
  EXPECT_EQ(last().outcome, Outcome::running);
  toUnit(ack(2));
  EXPECT_EQ(last().outcome, Outcome::done);
  EXPECT_EQ(last().blocks, 2);
  EXPECT_EQ(last().bytes, 1000U);
  EXPECT_EQ(last().repeats, 0);
  EXPECT_EQ(last().startUs, 1);
  EXPECT_EQ(last().endUs, 5);
  EXPECT_EQ(last().message, "");
}

TEST_F(GatewayTransfers, FollowsAWrite) {
  toUnit(writeRequest("FTM_TestModeOp.xml"));
  EXPECT_TRUE(last().isWrite);
  fromUnit(ack(0));
  toUnit(data(1, 512));
  fromUnit(ack(1));
  toUnit(data(2, 0));
  EXPECT_EQ(last().outcome, Outcome::running);
  fromUnit(ack(2));
  EXPECT_EQ(last().outcome, Outcome::done);
  EXPECT_EQ(last().blocks, 2);
  EXPECT_EQ(last().bytes, 512U);
  EXPECT_EQ(last().repeats, 0);
}

TEST_F(GatewayTransfers, SaysWhoseErrorEndedIt) {
  toUnit(readRequest("nothing"));
  fromUnit(error("File Not Supported"));
  EXPECT_EQ(last().outcome, Outcome::error);
  EXPECT_EQ(last().message, "unit: File Not Supported");
  toUnit(readRequest("a"));
  fromUnit(data(1, 512));
  toUnit(error("disk full"));
  EXPECT_EQ(last().outcome, Outcome::error);
  EXPECT_EQ(last().message, "station: disk full");
  fromUnit(error("too late"));
  EXPECT_EQ(last().message, "station: disk full");
}

TEST_F(GatewayTransfers, CountsRepeatsOfARead) {
  toUnit(readRequest("a"), Fate::lost);
  toUnit(readRequest("a"));
  EXPECT_EQ(last().repeats, 1);
  fromUnit(data(1, 512), Fate::lost);
  fromUnit(data(1, 512));
  EXPECT_EQ(last().repeats, 2);
  toUnit(ack(1), Fate::lost);
  EXPECT_EQ(last().blocks, 0);
  fromUnit(data(1, 512));
  toUnit(ack(1));
  toUnit(ack(1));
  EXPECT_EQ(last().repeats, 4);
  EXPECT_EQ(last().blocks, 1);
  EXPECT_THAT(transfers().all(), SizeIs(1));
}

TEST_F(GatewayTransfers, CountsRepeatsOfAWrite) {
  toUnit(writeRequest("a"));
  fromUnit(ack(0), Fate::lost);
  fromUnit(ack(0));
  EXPECT_EQ(last().repeats, 1);
  toUnit(data(1, 10), Fate::lost);
  toUnit(data(1, 10), Fate::duplicated);
  EXPECT_EQ(last().repeats, 3);
  fromUnit(ack(1), Fate::lost); // the unit has it all
  EXPECT_EQ(last().outcome, Outcome::done);
  const std::int64_t end = last().endUs;
  toUnit(data(1, 10));
  fromUnit(ack(1));
  EXPECT_EQ(last().repeats, 5);
  EXPECT_EQ(last().bytes, 10U);
  EXPECT_EQ(last().endUs, end);
}

TEST_F(GatewayTransfers, AbandonsWhatFallsSilent) {
  toUnit(readRequest("a"));
  transfers().passTime(now() + Transfers::silenceUs);
  EXPECT_EQ(last().outcome, Outcome::running);
  transfers().passTime(now() + Transfers::silenceUs + 1);
  EXPECT_EQ(last().outcome, Outcome::abandoned);
  EXPECT_EQ(last().message, "the unit didn't answer");
  toUnit(readRequest("a")); // is a new one then
  fromUnit(data(1, 512));
  transfers().passTime(now() + 100 * second);
  EXPECT_EQ(last().message, "the station fell silent at block 1");
  toUnit(writeRequest("a"));
  fromUnit(ack(0));
  transfers().passTime(now() + 100 * second);
  EXPECT_EQ(last().message, "the station fell silent at block 1");
  toUnit(writeRequest("a"));
  fromUnit(ack(0));
  toUnit(data(1, 5));
  transfers().passTime(now() + 100 * second);
  EXPECT_EQ(last().message, "the unit fell silent at block 1");
  EXPECT_THAT(transfers().all(), SizeIs(4));
}

TEST_F(GatewayTransfers, AbandonsWhatTheStationDoesNotGoOnWith) {
  toUnit(readRequest("a"));
  fromUnit(data(1, 512));
  toUnit(readRequest("b"));
  EXPECT_THAT(transfers().all(), SizeIs(2));
  EXPECT_EQ(transfers().all()[0].outcome, Outcome::abandoned);
  EXPECT_EQ(last().outcome, Outcome::running);
}

TEST_F(GatewayTransfers, KeepsStationsApart) {
  toUnit(readRequest("a"), Fate::passed, "10.0.0.1:1");
  toUnit(writeRequest("b"), Fate::passed, "10.0.0.1:2");
  fromUnit(data(1, 3), Fate::passed, "10.0.0.1:1");
  fromUnit(ack(0), Fate::passed, "10.0.0.1:2");
  toUnit(data(1, 4), Fate::passed, "10.0.0.1:2");
  toUnit(ack(1), Fate::passed, "10.0.0.1:1");
  fromUnit(ack(1), Fate::passed, "10.0.0.1:2");
  ASSERT_THAT(transfers().all(), SizeIs(2));
  EXPECT_EQ(transfers().all()[0].outcome, Outcome::done);
  EXPECT_EQ(transfers().all()[0].bytes, 3U);
  EXPECT_EQ(transfers().all()[1].outcome, Outcome::done);
  EXPECT_EQ(transfers().all()[1].bytes, 4U);
}

TEST_F(GatewayTransfers, FollowsBlockNumbersThatWrap) {
  toUnit(writeRequest("image.hex"));
  fromUnit(ack(0));
  constexpr int count = 65536 + 10;
  for (int block = 1; block <= count; ++block) {
    toUnit(data(block & 0xFFFF, block < count ? 512 : 1));
    fromUnit(ack(block & 0xFFFF));
  }
  EXPECT_EQ(last().outcome, Outcome::done);
  EXPECT_EQ(last().blocks, count);
  EXPECT_EQ(last().repeats, 0);
}

TEST_F(GatewayTransfers, TellsWhatHasChanged) {
  EXPECT_EQ(transfers().revision(), 0U);
  toUnit(readRequest("a"), Fate::passed, "10.0.0.1:1");
  toUnit(readRequest("b"), Fate::passed, "10.0.0.1:2");
  const std::uint64_t revision = transfers().revision();
  EXPECT_THAT(transfers().changedSince(0), SizeIs(2));
  EXPECT_THAT(transfers().changedSince(revision), IsEmpty());
  fromUnit(data(1, 3), Fate::passed, "10.0.0.1:1");
  const std::vector<Transfer> changed = transfers().changedSince(revision);
  ASSERT_THAT(changed, SizeIs(1));
  EXPECT_EQ(changed[0].file, "a");
}

TEST_F(GatewayTransfers, KeepsTheNewest) {
  for (int count = 0; count < 3000; ++count)
    toUnit(readRequest("a"), Fate::passed, "10.0.0.1:" + std::to_string(count));
  EXPECT_THAT(transfers().all(), SizeIs(Transfers::kept));
  EXPECT_EQ(last().number, 3000U);
  fromUnit(data(1, 3), Fate::passed, "10.0.0.1:0"); // forgotten
  EXPECT_EQ(transfers().all().front().number, 2001U);
}

TEST_F(GatewayTransfers, KeepsAsManyAsItIsTold) {
  Transfers few(2);
  for (std::uint64_t number = 1; number <= 3; ++number)
    few.add({number, 0, true, "10.0.0.1:" + std::to_string(number), Fate::passed, readRequest("a")});
  ASSERT_THAT(few.all(), SizeIs(2));
  EXPECT_EQ(few.all().front().number, 2U);
}

TEST_F(GatewayTransfers, StartsOverWithAUnitInFactoryState) {
  for (int count = 0; count < 3; ++count)
    toUnit(readRequest("old"), Fate::passed, "10.0.0.1:" + std::to_string(count));
  setNumber(0);
  toUnit(readRequest("new"));
  ASSERT_THAT(transfers().all(), SizeIs(1));
  EXPECT_EQ(last().file, "new");
}

TEST_F(GatewayTransfers, TakesWhateverAStationSends) {
  const std::vector<std::string> odd = {"",
                                        std::string("\0", 1),
                                        std::string("\0\1", 2),
                                        std::string("\0\2", 2),
                                        std::string("\0\3", 2),
                                        std::string("\0\4\0", 3),
                                        std::string("\0\5", 2),
                                        std::string("\0\1", 2) + std::string(514, 'n'),
                                        "nonsense",
                                        packet(3, 1, std::string(512, 'x')),
                                        packet(9, 9)};
  for (const std::string& sent : odd)
    for (const std::string& answer : odd) {
      toUnit(sent);
      fromUnit(answer);
    }
  toUnit(std::string("\0\1", 2) + std::string(514, 'n'));
  EXPECT_EQ(last().file, std::string(514, 'n')); // no end but the datagram's
  std::mt19937 random(1);
  for (int count = 0; count < 20'000; ++count) {
    std::string bytes(random() % 8, '\0');
    for (char& byte : bytes)
      byte = static_cast<char>(random() % 6);
    const auto fate = static_cast<Fate>(random() % 4);
    random() % 2 == 0 ? toUnit(bytes, fate) : fromUnit(bytes, fate);
  }
  EXPECT_THAT(transfers().all(), SizeIs(testing::Le(Transfers::kept)));
}

TEST(GatewayPackets, AreToldInWords) {
  EXPECT_EQ(packetText(readRequest("a.xml")), "read a.xml");
  EXPECT_EQ(packetText(writeRequest("a.xml")), "write a.xml");
  EXPECT_EQ(packetText(data(258, 7)), "data 258, 7 bytes");
  EXPECT_EQ(packetText(ack(3)), "acknowledgement 3");
  EXPECT_EQ(packetText(error("no")), "error 0 no");
  EXPECT_EQ(packetText(""), "0 bytes");
  EXPECT_EQ(packetText("xyz"), "3 bytes");
}
