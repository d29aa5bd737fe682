// The four-port counters: running totals over links that come and go.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <random>
#include <string>

#include "userapps/FTM/FTM_Apis.h"

namespace {

constexpr int up = 1;
constexpr int down = 0;

class FourPortCounters : public testing::Test {
protected:
  FourPortCounters() { FtmClear4PortStat(); }

  static std::string total(unsigned int port = 0, unsigned int index = eETHPACK_RX) {
    char text[portCountTextSize];
    ftmGet4PortStatCt(text, port, index);
    return text;
  }

  static std::string read(int link, const char* count) {
    EXPECT_EQ(ftmSave4PortStatCt(count, link, 0, eETHPACK_RX), 1);
    return total();
  }

  static ST_STAT_CT& counter() { return stPortStatCt[0].stStatCt[eETHPACK_RX]; }
};

TEST_F(FourPortCounters, BankTheLastCountOfALinkThatDrops) {
  EXPECT_EQ(read(up, "100"), "100");
  EXPECT_EQ(read(up, "150"), "150");
  EXPECT_EQ(read(down, "5"), "155");
}

TEST_F(FourPortCounters, BankOncePerDrop) {
  read(up, "100");
  read(down, "0");
  EXPECT_EQ(read(down, "0"), "100");
  EXPECT_EQ(read(up, "7"), "107");
  EXPECT_EQ(read(down, "0"), "107");
}

TEST_F(FourPortCounters, DoNotBankWhatWasReadWhileDown) {
  EXPECT_EQ(read(down, "40"), "40");
  EXPECT_EQ(read(up, "3"), "3");
}

struct Transition {
  E4PSTATE from;
  int link;
  E4PSTATE to;
  bool banks;
};

class FourPortTransitions : public FourPortCounters, public testing::WithParamInterface<Transition> {};

TEST_P(FourPortTransitions, FollowTheLink) {
  counter() = {GetParam().from, 20, 1000};
  EXPECT_EQ(ftmSave4PortStatCt("3", GetParam().link, 0, eETHPACK_RX), 1);
  EXPECT_EQ(counter().iPortState, GetParam().to);
  EXPECT_EQ(counter().iCntCur, 3);
  EXPECT_EQ(counter().iCntAcc, GetParam().banks ? 1020 : 1000);
}

INSTANTIATE_TEST_SUITE_P(All, FourPortTransitions,
                         testing::Values(Transition{eDOWN, down, eDOWN, false},
                                         Transition{eUP, down, eTRANSI_TO_DOWN, true},
                                         Transition{eTRANSI_TO_UP, down, eTRANSI_TO_DOWN, true},
                                         Transition{eTRANSI_TO_DOWN, down, eDOWN, false},
                                         Transition{eDOWN, up, eTRANSI_TO_UP, false},
                                         Transition{eTRANSI_TO_DOWN, up, eTRANSI_TO_UP, false},
                                         Transition{eTRANSI_TO_UP, up, eUP, false}, Transition{eUP, up, eUP, false}));

TEST_F(FourPortCounters, TakeAnyLinkFlagButOneForDown) {
  counter().iPortState = eUP;
  ftmSave4PortStatCt("1", 2, 0, eETHPACK_RX);
  EXPECT_EQ(counter().iPortState, eTRANSI_TO_DOWN);
}

TEST_F(FourPortCounters, KeepStateAndTotalWhenTheCountIsNegativeOrMissing) {
  counter() = {eUP, 20, 100};
  for (const char* count : {static_cast<const char*>(nullptr), "-1", "-2147483648", "-99999999999999999999"}) {
    EXPECT_EQ(ftmSave4PortStatCt(count, down, 0, eETHPACK_RX), 0);
    EXPECT_EQ(counter().iPortState, eUP);
    EXPECT_EQ(counter().iCntCur, 20);
    EXPECT_EQ(counter().iCntAcc, 100);
    EXPECT_EQ(total(), "120");
  }
}

TEST_F(FourPortCounters, TakeATextWithoutANumberForZero) {
  EXPECT_EQ(read(up, ""), "0");
  EXPECT_EQ(read(up, "many"), "0");
  EXPECT_EQ(read(up, " 12 packets"), "12");
}

TEST_F(FourPortCounters, AreSeparatePerPortAndDirection) {
  for (unsigned int port = 0; port < switchPorts; ++port)
    for (unsigned int index = 0; index < eE4PST_IX_MAX; ++index)
      ftmSave4PortStatCt(std::to_string(10 * port + index).c_str(), up, port, index);
  for (unsigned int port = 0; port < switchPorts; ++port)
    for (unsigned int index = 0; index < eE4PST_IX_MAX; ++index)
      EXPECT_EQ(total(port, index), std::to_string(10 * port + index));
}

TEST_F(FourPortCounters, ShowTheLargestTotalOfTheTextForAnyLargerOne) {
  EXPECT_EQ(read(up, "999999999"), "999999999");
  EXPECT_EQ(read(up, "1000000000"), "999999999");
  EXPECT_EQ(read(up, "99999999999999999999"), "999999999");
  counter() = {eUP, 1, 999'999'999};
  EXPECT_EQ(total(), "999999999");
}

TEST_F(FourPortCounters, WriteNoMoreThanTheirText) {
  char text[portCountTextSize + 1];
  std::memset(text, '#', sizeof text);
  ftmSave4PortStatCt("2147483647", up, 0, eETHPACK_RX);
  ftmGet4PortStatCt(text, 0, eETHPACK_RX);
  EXPECT_EQ(text[portCountTextSize - 1], '\0');
  EXPECT_EQ(text[portCountTextSize], '#');
}

TEST_F(FourPortCounters, StayAtTheHighestBankInsteadOfOverflowing) {
  constexpr int highest = std::numeric_limits<int>::max();
  counter() = {eUP, highest, highest};
  EXPECT_EQ(read(down, "2147483647"), "999999999");
  EXPECT_EQ(counter().iCntAcc, highest);
}

TEST_F(FourPortCounters, RefuseACounterThatIsNotThere) {
  EXPECT_EQ(ftmSave4PortStatCt("1", up, switchPorts, eETHPACK_RX), 0);
  EXPECT_EQ(ftmSave4PortStatCt("1", up, 0, eE4PST_IX_MAX), 0);
  EXPECT_EQ(ftmSave4PortStatCt("1", up, ~0U, ~0U), 0);
  EXPECT_EQ(total(switchPorts, eETHPACK_RX), "");
  EXPECT_EQ(total(0, eE4PST_IX_MAX), "");
}

TEST_F(FourPortCounters, AreAllForgottenByAClear) {
  std::memset(stPortStatCt, 1, sizeof stPortStatCt);
  FtmClear4PortStat();
  for (const ST_PORT_STAT_CT& port : stPortStatCt)
    for (const ST_STAT_CT& count : port.stStatCt) {
      EXPECT_EQ(count.iPortState, eDOWN);
      EXPECT_EQ(count.iCntCur, 0);
      EXPECT_EQ(count.iCntAcc, 0);
    }
}

// What a station relies on: the last count before each drop is kept, and the present count comes on top.
class ModelCounter {
public:
  void take(bool isUp, long count) {
    if (count < 0)
      return;
    if (m_wasUp && !isUp)
      m_bank += m_count;
    m_wasUp = isUp;
    m_count = count;
  }
  std::string total() const { return std::to_string(std::min(m_bank + m_count, 999'999'999L)); }

private:
  bool m_wasUp = false;
  long m_count = 0;
  long m_bank = 0;
};

TEST_F(FourPortCounters, AgreeWithTheModelOverRandomSequences) {
  std::mt19937 random(20260704);
  std::uniform_int_distribution<unsigned int> anyPort(0, switchPorts - 1);
  std::uniform_int_distribution<unsigned int> anyIndex(0, eE4PST_IX_MAX - 1);
  std::uniform_int_distribution<long> anyCount(-1000, 20000);
  std::bernoulli_distribution linkChanges(0.3);
  for (int sequence = 0; sequence < 200; ++sequence) {
    FtmClear4PortStat();
    ModelCounter models[switchPorts][eE4PST_IX_MAX];
    bool isUp[switchPorts] = {};
    for (int step = 0; step < 300; ++step) {
      const unsigned int port = anyPort(random);
      const unsigned int index = anyIndex(random);
      isUp[port] ^= linkChanges(random);
      const long count = anyCount(random);
      models[port][index].take(isUp[port], count);
      ftmSave4PortStatCt(std::to_string(count).c_str(), isUp[port] ? up : down, port, index);
      ASSERT_EQ(total(port, index), models[port][index].total()) << "sequence " << sequence << " step " << step;
    }
  }
}

} // namespace
