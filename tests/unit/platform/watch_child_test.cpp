// How programs are waited for, with and without a kernel that tells of their end.
#include "platform/watch_child.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <functional>
#include <string>

#include "faults.h"
#include "host_files.h"
#include "platform/error.h"
#include "platform/process.h"
#include "platform/signals.h"
#include "scratch.h"

namespace kova::platform {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using test::InChild;
using test::Scratch;

constexpr char kShell[] = "/bin/sh";
constexpr size_t kPlenty = 1 << 20;

// What a run does that is told to end in the middle of it.
int Disturbed(const std::function<int()>& body) {
  return InChild([&] {
    return RunInterruptibly("tag", [&] {
      const pid_t teller = fork();
      if (teller == 0) {
        usleep(200'000);
        kill(getppid(), SIGTERM);
        _exit(0);
      }
      return body();
    });
  });
}

class WatchChildTest : public testing::TestWithParam<bool> {
 protected:
  WatchChildTest() { faults_.faults.no_pidfd = !GetParam(); }

 private:
  test::FaultScope faults_;
};

TEST_P(WatchChildTest, CapturedOutputHasALimit) {
  std::string output;
  EXPECT_EQ(
      RunWithin({kNoTimeLimit, 300000}, "/usr/bin/head", {"-c", "300000", "/dev/zero"}, &output),
      0);
  EXPECT_EQ(output.size(), 300000U);
  EXPECT_EQ(
      RunWithin({kNoTimeLimit, 299999}, "/usr/bin/head", {"-c", "300000", "/dev/zero"}, &output),
      -1);
  EXPECT_EQ(KLIBCErrGet(), EMSGSIZE);
  EXPECT_EQ(output, std::string(299999, '\0'));
  EXPECT_EQ(RunWithin({kNoTimeLimit, kPlenty}, "/bin/cat", {"/dev/zero"}, &output), -1);
  EXPECT_EQ(KLIBCErrGet(), EMSGSIZE);
}

TEST_P(WatchChildTest, WhatTakesTooLongIsEndedWithAllThatItStarted) {
  const Scratch scratch;
  const std::string late = scratch.Path("late");
  const KovaArgs args = {"-c", "echo begun; (sleep 0.7; touch " + late + ") & wait"};
  std::string output;
  const auto start = steady_clock::now();
  EXPECT_EQ(RunWithin({milliseconds(200), kPlenty}, kShell, args, &output), -1);
  EXPECT_EQ(KLIBCErrGet(), ETIMEDOUT);
  EXPECT_EQ(output, "begun\n");
  EXPECT_EQ(RunWithin({milliseconds(200), kPlenty}, kShell, {"-c", "exec >&-; sleep 30"}, &output),
            -1);
  EXPECT_EQ(KLIBCErrGet(), ETIMEDOUT);
  EXPECT_EQ(RunWithin({milliseconds(200), kPlenty}, kShell, {"-c", "sleep 30"}, nullptr), -1);
  EXPECT_EQ(KLIBCErrGet(), ETIMEDOUT);
  EXPECT_LT(steady_clock::now() - start, seconds(10));
  usleep(700'000);
  EXPECT_FALSE(test::Exists(late));
}

TEST_P(WatchChildTest, WithinItsLimitsAProgramHasItsStatus) {
  const ChildLimits limits{seconds(60), 4};
  std::string output;
  EXPECT_EQ(RunWithin(limits, kShell, {"-c", "echo abc; exit 5"}, &output), 5);
  EXPECT_EQ(output, "abc\n");
  EXPECT_EQ(RunWithin(limits, kShell, {"-c", "yes | head -c 100000; exit 6"}, nullptr), 6);
  EXPECT_EQ(RunWithin(limits, kShell, {"-c", "kill -9 $$"}, nullptr), -1);
  EXPECT_EQ(KLIBCErrGet(), EINTR);
}

TEST_P(WatchChildTest, ARunThatIsToEndWaitsForNoChild) {
  const Scratch scratch;
  const std::string tool = scratch.Path("tool");
  const std::string script = scratch.Path("script");
  const std::string hook = scratch.Path("hook");
  const auto late = [](const std::string& file) {
    return KovaArgs{"-c", "sleep 1; touch " + file};
  };
  const auto start = steady_clock::now();
  const int killed = 128 + SIGTERM;
  EXPECT_EQ(Disturbed([&] {
              const int result = KLIBCExec("/bin/sleep", {"60"});
              if (result != -1 || KLIBCErrGet() != EINTR) _exit(1);
              return 0;
            }),
            killed);
  EXPECT_EQ(Disturbed([&] { return KLIBCExecl(kShell, kKovaExecTool, late(tool)); }), killed);
  EXPECT_EQ(Disturbed([&] { return KLIBCExecl(kShell, kKovaExecScript, late(script)); }), killed);
  EXPECT_EQ(Disturbed([&] {
              return RunWithin({seconds(60), 1}, kShell, late(hook), nullptr);
            }),
            killed);
  EXPECT_LT(steady_clock::now() - start, seconds(3));
  usleep(1'200'000);
  EXPECT_FALSE(test::Exists(tool));
  EXPECT_FALSE(test::Exists(hook));
  EXPECT_TRUE(test::Exists(script));  // half of a reload would be worse than none
}

TEST_P(WatchChildTest, WhatUndoesAStepAfterTheSignalIsLetThrough) {
  const Scratch scratch;
  EXPECT_EQ(InChild([&] {
              return RunInterruptibly("tag", [&] {
                raise(SIGTERM);
                KLIBCExec(kShell, {"-c", "sleep 0.1; touch " + scratch.Path("undone")});
                return 0;
              });
            }),
            128 + SIGTERM);
  EXPECT_TRUE(test::Exists(scratch.Path("undone")));
}

TEST_P(WatchChildTest, AChildThatClosesItsOutputIsStillWaitedFor) {
  std::string output;
  EXPECT_EQ(RunWithin({kNoTimeLimit, kPlenty}, kShell,
                      {"-c", "echo x; exec >&-; sleep 0.2; exit 8"}, &output),
            8);
  EXPECT_EQ(output, "x\n");
}

TEST_P(WatchChildTest, WhatTheChildLeavesRunningDoesNotHoldUsUp) {
  std::string output;
  const auto start = steady_clock::now();
  EXPECT_EQ(
      RunWithin({kNoTimeLimit, kPlenty}, kShell, {"-c", "echo hello; sleep 30 & exit 3"}, &output),
      3);
  EXPECT_EQ(output, "hello\n");
  // Nor when it writes for ever.
  EXPECT_EQ(RunWithin({kNoTimeLimit, 5000}, kShell, {"-c", "yes & sleep 0.1; exit 4"}, &output),
            -1);
  EXPECT_EQ(output.size(), 5000U);
  EXPECT_EQ(KLIBCExecl(kShell, kKovaExecTool, {"-c", "sleep 30 & exit 0"}), 0);
  EXPECT_LT(steady_clock::now() - start, seconds(10));
}

TEST_P(WatchChildTest, AChildThatIsGoneHasEnded) {
  EXPECT_EQ(InChild([] {
              (void)signal(SIGCHLD, SIG_IGN);  // nobody has to collect it
              const pid_t child = fork();
              if (child == 0) _exit(usleep(50'000));
              return AwaitExit(child) ? 0 : 1;
            }),
            0);
}

INSTANTIATE_TEST_SUITE_P(Kernels, WatchChildTest, testing::Bool(), [](const auto& kernel) {
  return std::string(kernel.param ? "WithPidfd" : "WithoutPidfd");
});

}  // namespace
}  // namespace kova::platform
