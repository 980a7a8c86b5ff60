#include "platform/aside.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <stdexcept>
#include <string>

#include "platform/fd.h"
#include "platform/signals.h"
#include "scratch.h"

namespace kova::platform {
namespace {

using std::chrono::seconds;
using std::chrono::steady_clock;
using test::InChild;
using test::Scratch;

bool Ask(const std::function<bool()>& question) { return AskAside(question, seconds(60)); }

TEST(AskAside, GivesTheAnswer) {
  EXPECT_TRUE(Ask([] { return true; }));
  EXPECT_FALSE(Ask([] { return false; }));
}

TEST(AskAside, ChangesNothingHere) {
  int value = 1;
  EXPECT_TRUE(Ask([&value] {
    value = 2;
    return true;
  }));
  EXPECT_EQ(value, 1);
}

TEST(AskAside, TakesNoAnswerForNo) {
  EXPECT_FALSE(Ask([]() -> bool { throw std::runtime_error("cannot tell"); }));
  EXPECT_FALSE(Ask([]() -> bool { std::abort(); }));
  EXPECT_FALSE(Ask([]() -> bool { _exit(0); }));
}

TEST(AskAside, KeepsNoFileOfOurs) {
  const Scratch scratch;
  const Fd low(open(scratch.Path("file").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  const Fd file(fcntl(low.Get(), F_DUPFD_CLOEXEC, 20));  // not the number of the answer's own
  ASSERT_TRUE(file);
  EXPECT_FALSE(Ask([&file] { return fcntl(file.Get(), F_GETFD) >= 0; }));
}

TEST(AskAside, IsCutShortByASignal) {
  const auto began = steady_clock::now();
  EXPECT_EQ(InChild([] {
              return RunInterruptibly("tag", [] {
                const pid_t parent = getpid();
                const bool answer = Ask([parent] {
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

TEST(AskAside, IsLeftWhenItsTimeIsOver) {
  const auto began = steady_clock::now();
  const auto slow = [] {
    sleep(30);
    return true;
  };
  EXPECT_FALSE(AskAside(slow, std::chrono::milliseconds(200)));
  EXPECT_LT(steady_clock::now() - began, seconds(10));
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);  // it is gone
  EXPECT_EQ(errno, ECHILD);
}

TEST(TextAside, GivesTheTextOnce) {
  TextAside aside([] { return std::string("made aside"); });
  std::string text = "old";
  EXPECT_TRUE(aside.Take(text));
  EXPECT_EQ(text, "made aside");
  EXPECT_FALSE(aside.Take(text));
  EXPECT_EQ(text, "");
}

TEST(TextAside, WorksWhileWeGoOn) {
  EXPECT_EQ(InChild([] {
              sigset_t usr1;
              sigemptyset(&usr1);
              sigaddset(&usr1, SIGUSR1);
              sigprocmask(SIG_BLOCK, &usr1, nullptr);
              const pid_t we = getpid();
              TextAside aside([we] {
                kill(we, SIGUSR1);
                return std::string("text");
              });
              const timespec limit{10, 0};
              if (sigtimedwait(&usr1, nullptr, &limit) != SIGUSR1) return 1;
              std::string text;
              return aside.Take(text) && text == "text" ? 0 : 2;
            }),
            0);
}

TEST(TextAside, GivesNothingOfAChildThatFails) {
  std::string text = "old";
  EXPECT_FALSE(TextAside([]() -> std::string { throw std::runtime_error("cannot"); }).Take(text));
  EXPECT_EQ(text, "");
  EXPECT_FALSE(TextAside([]() -> std::string { std::abort(); }).Take(text));
  EXPECT_FALSE(TextAside([] { return std::string(); }).Take(text));
}

TEST(TextAside, GivesNothingWhereNoChildCanBeMade) {
  EXPECT_EQ(InChild([] {
              const rlimit none{0, 0};
              if (setrlimit(RLIMIT_NOFILE, &none) != 0) return 1;
              std::string text;
              return TextAside([] { return std::string("text"); }).Take(text) ? 2 : 0;
            }),
            0);
}

TEST(TextAside, TakesNoMoreThanTheLongest) {
  std::string text;
  EXPECT_TRUE(TextAside([] { return std::string(TextAside::kLongest, 'x'); }).Take(text));
  EXPECT_EQ(text.size(), TextAside::kLongest);
  EXPECT_FALSE(TextAside([] { return std::string(TextAside::kLongest + 1, 'x'); }).Take(text));
  EXPECT_EQ(text, "");
}

TEST(TextAside, KeepsNoFileOfOurs) {
  const Scratch scratch;
  const Fd low(open(scratch.Path("file").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  const Fd file(fcntl(low.Get(), F_DUPFD_CLOEXEC, 20));
  ASSERT_TRUE(file);
  std::string text;
  ASSERT_TRUE(TextAside([&file] {
                return std::string(fcntl(file.Get(), F_GETFD) >= 0 ? "kept" : "gone");
              }).Take(text));
  EXPECT_EQ(text, "gone");
}

// The child that nobody waits for is there no more, not even as one that has ended.
TEST(TextAside, EndsAChildWhoseTextIsNotTaken) {
  const auto began = steady_clock::now();
  {
    const TextAside aside([] { return std::to_string(sleep(30)); });
  }
  EXPECT_LT(steady_clock::now() - began, seconds(10));
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
}

TEST(TextAside, IsCutShortByASignal) {
  const auto began = steady_clock::now();
  EXPECT_EQ(InChild([] {
              return RunInterruptibly("tag", [] {
                const pid_t parent = getpid();
                TextAside aside([parent] {
                  kill(parent, SIGTERM);
                  return std::to_string(sleep(30));
                });
                std::string text;
                return aside.Take(text) ? 1 : 2;
              });
            }),
            128 + SIGTERM);
  EXPECT_LT(steady_clock::now() - began, seconds(10));
}

TEST(TextAside, IsNotWaitedForAfterASignal) {
  const auto began = steady_clock::now();
  EXPECT_EQ(InChild([] {
              return RunInterruptibly("tag", [] {
                TextAside aside([] { return std::to_string(sleep(30)); });
                (void)std::raise(SIGTERM);
                std::string text;
                return aside.Take(text) ? 1 : 2;
              });
            }),
            128 + SIGTERM);
  EXPECT_LT(steady_clock::now() - began, seconds(5));
}

TEST(TextAside, WorksWhereEndedChildrenAreIgnored) {
  EXPECT_EQ(InChild([] {
              (void)std::signal(SIGCHLD, SIG_IGN);
              std::string text;
              return TextAside([] { return std::string("text"); }).Take(text) ? 0 : 1;
            }),
            0);
}

}  // namespace
}  // namespace kova::platform
