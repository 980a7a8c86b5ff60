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

TEST(ClockTest, AWaitIsOneCallOfTheWholeDuration) {
  FaultScope scope;
  SleepFor(seconds(2));
  SleepFor(milliseconds(100));
  EXPECT_THAT(scope.faults.waits, ElementsAre(seconds(2), milliseconds(100)));
}

TEST(ClockTest, AnErrnoLeftOverFromBeforeIsNoSignal) {
  FaultScope scope;
  errno = EINTR;
  SleepFor(seconds(2));
  EXPECT_THAT(scope.faults.waits, ElementsAre(seconds(2)));
}

TEST(ClockTest, NothingIsWaitedForNoTime) {
  FaultScope scope;
  SleepFor(seconds(0));
  SleepFor(seconds(-1));
  EXPECT_THAT(scope.faults.waits, IsEmpty());
}

TEST(ClockTest, ASignalThatEndsNothingMakesItWaitForWhatIsLeft) {
  FaultScope scope;
  scope.faults.interrupted_waits = 1;
  SleepFor(seconds(5));
  ASSERT_EQ(scope.faults.waits.size(), 2U);
  EXPECT_GT(scope.faults.waits[1], milliseconds(4000));  // hardly any time has really passed
  EXPECT_LT(scope.faults.waits[1], seconds(5));
}

TEST(ClockTest, TimeReallyPasses) {
  const auto start = std::chrono::steady_clock::now();
  SleepFor(milliseconds(30));
  EXPECT_GE(std::chrono::steady_clock::now() - start, milliseconds(30));
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
  EXPECT_THAT(scope.faults.waits, IsEmpty());
  SleepFor(seconds(3));
  EXPECT_THAT(scope.faults.waits, ElementsAre(seconds(3)));
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
