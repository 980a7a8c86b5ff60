#include "platform/aside.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <stdexcept>

#include "platform/fd.h"
#include "platform/signals.h"
#include "scratch.h"

namespace kova::platform {
namespace {

using std::chrono::seconds;
using std::chrono::steady_clock;
using test::InChild;
using test::Scratch;

TEST(AskAside, GivesTheAnswer) {
  EXPECT_TRUE(AskAside([] { return true; }));
  EXPECT_FALSE(AskAside([] { return false; }));
}

TEST(AskAside, ChangesNothingHere) {
  int value = 1;
  EXPECT_TRUE(AskAside([&value] {
    value = 2;
    return true;
  }));
  EXPECT_EQ(value, 1);
}

TEST(AskAside, TakesNoAnswerForNo) {
  EXPECT_FALSE(AskAside([]() -> bool { throw std::runtime_error("cannot tell"); }));
  EXPECT_FALSE(AskAside([]() -> bool { std::abort(); }));
  EXPECT_FALSE(AskAside([]() -> bool { _exit(0); }));
}

TEST(AskAside, KeepsNoFileOfOurs) {
  const Scratch scratch;
  const Fd low(open(scratch.Path("file").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  const Fd file(fcntl(low.Get(), F_DUPFD_CLOEXEC, 20));  // not the number of the answer's own
  ASSERT_TRUE(file);
  EXPECT_FALSE(AskAside([&file] { return fcntl(file.Get(), F_GETFD) >= 0; }));
}

TEST(AskAside, IsCutShortByASignal) {
  const auto began = steady_clock::now();
  EXPECT_EQ(InChild([] {
              return RunInterruptibly("tag", [] {
                const pid_t parent = getpid();
                const bool answer = AskAside([parent] {
                  kill(parent, SIGTERM);
                  sleep(30);
                  return true;
                });
                if (answer) return 1;
                ThrowIfInterrupted();
                return 2;
              });
            }),
            128 + SIGTERM);
  EXPECT_LT(steady_clock::now() - began, seconds(10));
}

}  // namespace
}  // namespace kova::platform
