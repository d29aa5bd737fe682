#include <gmock/gmock.h>

#include <cerrno>
#include <string>
#include <vector>

#include "platform/board.h"
#include "simulator/clock.h"

using gateway::clock::at;
using gateway::clock::nowMs;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// The clock that a test moves by hand: board_usleep() is what moves it, and no test here sleeps.
class GatewayClock : public testing::Test {
protected:
  GatewayClock() { gateway::clock::useManual(); }
  ~GatewayClock() override { gateway::clock::useReal(); }

  /// An event that notes its name and when it ran.
  void note(std::int64_t ms, const std::string& name) {
    at(ms, [this, name] { notes.push_back(name + "@" + std::to_string(nowMs())); });
  }

  int waitUntil(std::int64_t ms) {
    const timespec deadline{.tv_sec = static_cast<time_t>(ms / 1000),
                            .tv_nsec = static_cast<long>(ms % 1000) * 1'000'000};
    pthread_mutex_lock(&mutex);
    const int result = board_cond_timedwait(&condition, &mutex, &deadline);
    EXPECT_EQ(pthread_mutex_trylock(&mutex), EBUSY); // held again
    pthread_mutex_unlock(&mutex);
    return result;
  }

  std::vector<std::string> notes;
  pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
  pthread_cond_t condition = PTHREAD_COND_INITIALIZER;
};

} // namespace

TEST_F(GatewayClock, StandsStillUntilSomebodyWaits) {
  EXPECT_EQ(nowMs(), 0);
  EXPECT_EQ(nowMs(), 0);
  EXPECT_EQ(board_usleep(2'500), 0);
  EXPECT_EQ(nowMs(), 2);
  timespec now{};
  EXPECT_EQ(board_clock_gettime(&now), 0);
  EXPECT_EQ(now.tv_sec, 0);
  EXPECT_EQ(now.tv_nsec, 2'500'000);
}

TEST_F(GatewayClock, MovesDaysWithoutWaiting) {
  for (int hour = 0; hour < 48; ++hour)
    board_usleep(3'600'000'000U);
  EXPECT_EQ(nowMs(), 48 * 3'600'000LL);
}

TEST_F(GatewayClock, RunsEventsInOrderDuringASleepThatGoesOn) {
  note(30, "c");
  note(10, "a");
  note(20, "b1");
  note(20, "b2");
  note(101, "late");
  board_usleep(100'000);
  EXPECT_THAT(notes, ElementsAre("a@10", "b1@20", "b2@20", "c@30"));
  EXPECT_EQ(nowMs(), 100);
  board_usleep(1'000);
  EXPECT_EQ(notes.back(), "late@101");
}

TEST_F(GatewayClock, EndsAWaitForAConditionAtAnEvent) {
  note(10, "a");
  note(10, "b");
  note(20, "c");
  EXPECT_EQ(waitUntil(50), 0);
  EXPECT_THAT(notes, ElementsAre("a@10", "b@10"));
  EXPECT_EQ(nowMs(), 10);
  EXPECT_EQ(waitUntil(20), 0);
  EXPECT_EQ(nowMs(), 20);
  EXPECT_EQ(waitUntil(50), ETIMEDOUT);
  EXPECT_EQ(nowMs(), 50);
}

TEST_F(GatewayClock, TimesOutAtOnceWhenTheDeadlineHasPassed) {
  board_usleep(100'000);
  EXPECT_EQ(waitUntil(50), ETIMEDOUT);
  EXPECT_EQ(nowMs(), 100);
}

TEST_F(GatewayClock, RunsAnEventOfThePastAtTheNextWait) {
  board_usleep(100'000);
  note(50, "past");
  EXPECT_THAT(notes, IsEmpty());
  EXPECT_EQ(waitUntil(200), 0);
  EXPECT_THAT(notes, ElementsAre("past@100"));
}

TEST_F(GatewayClock, LetsAnEventTakeTheMutexOfTheWait) {
  at(10, [this] {
    EXPECT_EQ(pthread_mutex_trylock(&mutex), 0);
    pthread_mutex_unlock(&mutex);
  });
  EXPECT_EQ(waitUntil(20), 0);
}

TEST_F(GatewayClock, LetsAnEventSleepAndOrderFurtherEvents) {
  at(10, [this] {
    note(15, "inner");
    board_usleep(20'000);
    notes.push_back("slept@" + std::to_string(nowMs()));
  });
  board_usleep(12'000);
  EXPECT_THAT(notes, ElementsAre("inner@15", "slept@30"));
  EXPECT_EQ(nowMs(), 30);
}

TEST_F(GatewayClock, ForgetsEventsAndTimeWhenItIsTakenInHandAgain) {
  note(10, "forgotten");
  board_usleep(5'000);
  gateway::clock::useManual();
  EXPECT_EQ(nowMs(), 0);
  board_usleep(20'000);
  EXPECT_THAT(notes, IsEmpty());
}

TEST_F(GatewayClock, IsTheMachinesUnlessTakenInHand) {
  gateway::clock::useReal();
  timespec machine{};
  clock_gettime(CLOCK_MONOTONIC, &machine);
  timespec board{};
  EXPECT_EQ(board_clock_gettime(&board), 0);
  EXPECT_GE(board.tv_sec, machine.tv_sec);
  EXPECT_LE(board.tv_sec, machine.tv_sec + 60);
  const std::int64_t before = nowMs();
  EXPECT_EQ(board_usleep(2'000), 0);
  EXPECT_GE(nowMs(), before + 2);
}
