#include "platform/signals.h"

#include <gmock/gmock.h>
#include <poll.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>

#include "host_files.h"
#include "platform/clock.h"
#include "platform/process.h"
#include "scratch.h"
#include "syslog_capture.h"

namespace kova::platform {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using test::InChild;
using test::ReadFile;
using test::Scratch;
using test::SyslogCapture;
using test::WriteFile;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr int kEndedBySignal = 128;  // plus the signal, as InChild tells it

// The status that a program ends with whose whole run is `body`.
int EndOf(const std::function<int()>& body) {
  return InChild([&] { return RunInterruptibly("tag", body); });
}

class SignalsTest : public testing::Test {
 public:
  void Note(const std::string& word) const { WriteFile(notes_, ReadFile(notes_) + word + "\n"); }
  [[nodiscard]] std::string Notes() const { return ReadFile(notes_); }

  Scratch scratch_;
  std::string notes_ = scratch_.Path("notes");
  SyslogCapture log_;

  SignalsTest() { WriteFile(notes_, ""); }
};

TEST_F(SignalsTest, AnUndisturbedRunHasItsOwnStatus) {
  EXPECT_EQ(EndOf([] {
              ThrowIfInterrupted();
              FinishRun();
              return Interrupted() ? 1 : 7;
            }),
            7);
  EXPECT_THAT(log_.Texts(), IsEmpty());
}

TEST_F(SignalsTest, AWaitIsCutShortAndWhatWasBegunIsTakenBack) {
  struct TakenBack {
    const SignalsTest& test;
    ~TakenBack() {
      const CleanupScope cleanup;
      SleepFor(milliseconds(1));
      test.Note(Interrupted() ? "late" : "taken back");
    }
  };
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
    WriteFile(notes_, "");
    log_.Clear();
    const auto start = steady_clock::now();
    EXPECT_EQ(EndOf([&] {
                const TakenBack object{*this};
                if (fork() == 0) {
                  usleep(50'000);
                  kill(getppid(), signal);
                  _exit(0);
                }
                try {
                  SleepFor(seconds(60));
                } catch (const std::exception&) {
                  Note("taken for an error");
                }
                Note("waited to the end");
                return 0;
              }),
              kEndedBySignal + signal);
    EXPECT_LT(steady_clock::now() - start, seconds(5));
    EXPECT_EQ(Notes(), "taken back\n");
    EXPECT_THAT(log_.Texts(), ElementsAre(testing::StartsWith("tag:# Ended by signal " +
                                                              std::to_string(signal) + " (")));
  }
}

TEST_F(SignalsTest, ASignalThatComesBeforeAWaitKeepsItFromBeginning) {
  EXPECT_EQ(EndOf([&] {
              raise(SIGTERM);
              Note(Interrupted() ? "interrupted" : "not interrupted");
              SleepFor(seconds(60));
              Note("waited to the end");
              return 0;
            }),
            kEndedBySignal + SIGTERM);
  EXPECT_EQ(Notes(), "interrupted\n");
}

TEST_F(SignalsTest, ARunThatNoticesNothingEndsByTheSignalAllTheSame) {
  EXPECT_EQ(EndOf([] { return raise(SIGINT); }), kEndedBySignal + SIGINT);
}

TEST_F(SignalsTest, ASwallowedInterruptionIsThrownAgain) {
  EXPECT_EQ(EndOf([&] {
              raise(SIGTERM);
              try {
                ThrowIfInterrupted();
              } catch (...) {
                Note("swallowed");
              }
              FinishRun();
              Note("result shown");
              return 0;
            }),
            kEndedBySignal + SIGTERM);
  EXPECT_EQ(Notes(), "swallowed\n");
}

TEST_F(SignalsTest, ASecondSignalEndsTheProcessAtOnce) {
  EXPECT_EQ(EndOf([&] {
              raise(SIGTERM);
              Note("going on");
              raise(SIGINT);
              Note("still there");
              return 0;
            }),
            kEndedBySignal + SIGINT);
  EXPECT_EQ(Notes(), "going on\n");
  EXPECT_THAT(log_.Texts(), IsEmpty());
}

TEST_F(SignalsTest, OnceTheResultIsShownASignalEndsTheProcessAtOnce) {
  EXPECT_EQ(EndOf([&] {
              FinishRun();
              raise(SIGHUP);
              Note("still there");
              return 0;
            }),
            kEndedBySignal + SIGHUP);
  EXPECT_EQ(Notes(), "");
}

TEST_F(SignalsTest, WhatWasIgnoredStaysIgnored) {
  EXPECT_EQ(InChild([] {
              signal(SIGHUP, SIG_IGN);
              return RunInterruptibly("tag", [] {
                raise(SIGHUP);
                SleepFor(milliseconds(1));
                FinishRun();
                raise(SIGHUP);
                return 3;
              });
            }),
            3);
}

TEST_F(SignalsTest, TakingBackHasTenSecondsFromTheSignal) {
  EXPECT_EQ(EndOf([&] {
              const auto limit = [] { return WithinCleanup(seconds(60)); };
              if (limit() != seconds(60)) return 1;
              raise(SIGTERM);
              if (limit() != seconds(60)) return 2;  // nothing is being taken back
              const CleanupScope cleanup;
              if (limit() > seconds(10) || limit() < seconds(8) || Interrupted()) return 3;
              if (WithinCleanup(milliseconds(5)) != milliseconds(5)) return 4;
              Note("good");
              return 0;
            }),
            kEndedBySignal + SIGTERM);
  EXPECT_EQ(Notes(), "good\n");
}

TEST_F(SignalsTest, ADescriptorTellsOfTheSignalWhereItEndsAWait) {
  EXPECT_EQ(InterruptionFd(), -1);
  EXPECT_EQ(EndOf([&] {
              const auto ready = [] {
                pollfd event{InterruptionFd(), POLLIN, 0};
                return poll(&event, 1, 0) == 1;
              };
              if (InterruptionFd() < 0 || ready()) return 1;
              {
                const CleanupScope cleanup;
                if (InterruptionFd() != -1) return 2;
              }
              raise(SIGTERM);
              if (!ready()) return 3;
              Note("good");
              return 0;
            }),
            kEndedBySignal + SIGTERM);
  EXPECT_EQ(Notes(), "good\n");
}

}  // namespace
}  // namespace kova::platform
