// The library that lets the black-box tests count waits.
#include <gtest/gtest.h>

#include <chrono>

#include "host_files.h"
#include "scratch.h"

namespace kova::test {
namespace {

class PreloadTest : public testing::Test {
 protected:
  void Run(const std::string& command) {
    Shell("KOVA_SLEEP_LOG=" + log_ + " LD_PRELOAD=" KOVA_TEST_PRELOAD " " + command);
  }

  Scratch scratch_;
  std::string log_ = scratch_.Path("sleeps");
};

TEST_F(PreloadTest, WaitsReturnAtOnceAndAreListed) {
  const auto start = std::chrono::steady_clock::now();
  Run("sh -c 'sleep 700; sleep 0.25'");
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
  EXPECT_EQ(ReadFile(log_), "700\n0.25\n");
}

TEST_F(PreloadTest, TheMonotonicClockMovesOnByWhatWasWaitedAndTheCalendarDoesNot) {
  Run("python3 -c 'import ctypes, time; libc = ctypes.CDLL(None); m = time.monotonic(); "
      "t = time.time(); libc.sleep(100); libc.usleep(500000); "
      "assert 100.5 <= time.monotonic() - m < 130, time.monotonic() - m; "
      "assert time.time() - t < 30'");
  EXPECT_EQ(ReadFile(log_), "100\n0.5\n");
}

TEST_F(PreloadTest, AWaitUntilAMomentIsAWaitForTheRest) {
  Run("python3 -c 'import time; m = time.monotonic(); time.sleep(50); "
      "assert 50 <= time.monotonic() - m < 80'");
  EXPECT_EQ(ReadLines(log_).size(), 1U);
}

}  // namespace
}  // namespace kova::test
