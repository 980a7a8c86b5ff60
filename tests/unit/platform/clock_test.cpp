#include "platform/clock.h"

#include <gmock/gmock.h>

#include <cerrno>

#include "faults.h"
#include "sleep_counter.h"

namespace kova {
namespace {

using platform::SleepFor;
using std::chrono::milliseconds;
using std::chrono::seconds;
using test::FaultScope;
using test::SleepCounter;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(ClockTest, AWaitIsOneSleepOfTheWholeDuration) {
  FaultScope scope;
  SleepFor(seconds(2));
  EXPECT_THAT(scope.faults.slept, ElementsAre(2U));
}

TEST(ClockTest, AnErrnoLeftOverFromBeforeIsNoSignal) {
  FaultScope scope;
  errno = EINTR;
  SleepFor(seconds(2));
  EXPECT_THAT(scope.faults.slept, ElementsAre(2U));
}

TEST(ClockTest, NothingIsSleptForNoTime) {
  FaultScope scope;
  SleepFor(seconds(0));
  SleepFor(seconds(-1));
  EXPECT_THAT(scope.faults.slept, IsEmpty());
}

TEST(ClockTest, ASignalMakesItSleepForWhatIsLeft) {
  FaultScope scope;
  scope.faults.sleeps = {{4, EINTR}, {0, 0}};
  SleepFor(seconds(5));
  EXPECT_THAT(scope.faults.slept, ElementsAre(5U, 5U));  // no time has really passed
}

TEST(ClockTest, ARemainderBelowASecondIsSleptAsWell) {
  FaultScope scope;
  scope.faults.sleeps = {{0, EINTR}, {0, 0}};
  SleepFor(seconds(1));
  EXPECT_THAT(scope.faults.slept, ElementsAre(1U, 1U));
}

TEST(ClockTest, WhatIsNoWholeSecondsIsOneSleepToTheMillisecond) {
  FaultScope scope;
  SleepFor(milliseconds(100));
  SleepFor(milliseconds(3200));
  SleepFor(milliseconds(-5));
  EXPECT_THAT(scope.faults.slept, IsEmpty());
  EXPECT_THAT(scope.faults.napped, ElementsAre(100, 3200, 0));
}

TEST(ClockTest, ASignalDoesNotCutAShortWait) {
  FaultScope scope;
  scope.faults.interrupted_naps = 1;
  SleepFor(milliseconds(100));
  EXPECT_THAT(scope.faults.napped, ElementsAre(100, 1));
}

TEST(ClockTest, TheCounterTakesThePlaceOfSleeping) {
  FaultScope scope;
  {
    SleepCounter counter;
    SleepFor(seconds(60));
    SleepFor(seconds(2));
    EXPECT_THAT(counter.Durations(), ElementsAre(seconds(60), seconds(2)));
    EXPECT_EQ(counter.Total(), seconds(62));
    counter.Clear();
    EXPECT_THAT(counter.Durations(), IsEmpty());
  }
  EXPECT_THAT(scope.faults.slept, IsEmpty());
  SleepFor(seconds(3));
  EXPECT_THAT(scope.faults.slept, ElementsAre(3U));
}

TEST(ClockTest, CountersNestAndRestoreEachOther) {
  SleepCounter outer;
  {
    SleepCounter inner;
    SleepFor(seconds(1));
    EXPECT_THAT(inner.Durations(), ElementsAre(seconds(1)));
  }
  SleepFor(seconds(2));
  EXPECT_THAT(outer.Durations(), ElementsAre(seconds(2)));
}

}  // namespace
}  // namespace kova
