#include "base/progress.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <vector>

#include "platform/clock.h"
#include "terminal.h"

namespace kova {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using test::Terminal;

constexpr char kWipe[] = "\r\033[K";

class Progress : public testing::Test {
 protected:
  Progress()
      : before_(
            platform::SetSleeper([this](milliseconds duration) { sleeps_.push_back(duration); })) {}
  ~Progress() override { platform::SetSleeper(before_); }

  std::vector<milliseconds> sleeps_;

 private:
  platform::Sleeper before_;
};

TEST_F(Progress, ShowsNameAndStage) {
  Terminal terminal;
  const ProgressLine line;
  ShowStage("a.example", "validating");
  EXPECT_EQ(terminal.Shown(), std::string(kWipe) + "a.example: validating");
  ShowStage("", "placing the order");
  EXPECT_EQ(terminal.Shown(), std::string(kWipe) + "placing the order");
}

TEST_F(Progress, GoesToTheDescriptorThatItIsGiven) {
  Terminal terminal;
  const int kept = dup(STDERR_FILENO);
  {
    const test::FullDisk elsewhere(STDERR_FILENO);
    const ProgressLine line(kept);
    ShowStage("", "placing the order");
    EXPECT_EQ(terminal.Shown(), std::string(kWipe) + "placing the order");
  }
  EXPECT_EQ(terminal.Shown(), kWipe);
  close(kept);
}

TEST_F(Progress, TakesATerminalOfNoRoomForOneThatDoesNotKnowItsSize) {
  const std::string name(100, 'x');
  for (const auto& [columns, shown] : {std::pair{1, 78}, std::pair{2, 1}, std::pair{3, 2}}) {
    Terminal terminal(static_cast<unsigned short>(columns));
    const ProgressLine line;
    ShowStage(name, "validating");
    EXPECT_EQ(terminal.Shown(), kWipe + name.substr(0, static_cast<size_t>(shown)));
  }
}

TEST_F(Progress, ShowsHowLongAStageHasWaited) {
  Terminal terminal;
  const ProgressLine line;
  ShowStage("a.example", "validating");
  terminal.Shown();
  WaitVisibly(seconds(2));
  EXPECT_EQ(terminal.Shown(), std::string(kWipe) + "a.example: validating (waited 2 s)");
  WaitVisibly(seconds(3));
  EXPECT_EQ(terminal.Shown(), std::string(kWipe) + "a.example: validating (waited 5 s)");
  EXPECT_EQ(sleeps_, (std::vector<milliseconds>{seconds(2), seconds(3)}));
}

TEST_F(Progress, CountsAnewForAnotherStage) {
  Terminal terminal;
  const ProgressLine line;
  ShowStage("a.example", "validating");
  WaitVisibly(seconds(2));
  ShowStage("a.example", "validating");
  terminal.Shown();
  WaitVisibly(seconds(2));
  EXPECT_EQ(terminal.Shown(), std::string(kWipe) + "a.example: validating (waited 4 s)");
  ShowStage("b.example", "validating");
  EXPECT_EQ(terminal.Shown(), std::string(kWipe) + "b.example: validating");
}

TEST_F(Progress, WipesItselfAtTheEnd) {
  Terminal terminal;
  {
    const ProgressLine line;
    ShowStage("", "stage");
    terminal.Shown();
  }
  EXPECT_EQ(terminal.Shown(), kWipe);
  ShowStage("", "later");
  WaitVisibly(seconds(1));
  EXPECT_EQ(terminal.Shown(), "");
}

TEST_F(Progress, LeavesTheTerminalAloneWhenNothingWasShown) {
  Terminal terminal;
  {
    const ProgressLine line;
    WaitVisibly(seconds(1));
  }
  EXPECT_EQ(terminal.Shown(), "");
}

TEST_F(Progress, ShowsNothingWithoutALine) {
  Terminal terminal;
  ShowStage("a.example", "validating");
  WaitVisibly(seconds(1));
  HideProgress();
  EXPECT_EQ(terminal.Shown(), "");
  EXPECT_EQ(sleeps_.size(), 1U);
}

TEST_F(Progress, ShowsNothingWhenStandardErrorIsNoTerminal) {
  testing::internal::CaptureStderr();
  {
    const ProgressLine line;
    ShowStage("a.example", "validating");
    WaitVisibly(seconds(2));
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(sleeps_, std::vector<milliseconds>{seconds(2)});
}

TEST_F(Progress, DrawsItselfAgainAfterBeingHidden) {
  Terminal terminal;
  const ProgressLine line;
  ShowStage("", "stage");
  HideProgress();
  terminal.Shown();
  WaitVisibly(seconds(2));
  EXPECT_EQ(terminal.Shown(), std::string(kWipe) + "stage (waited 2 s)");
}

TEST_F(Progress, LetsNoControlCharactersThrough) {
  Terminal terminal;
  const ProgressLine line;
  ShowStage("a\033[2J\n\x07", "caf\xc3\xa9\x7f\x9b");
  EXPECT_EQ(terminal.Shown(), std::string(kWipe) + "a?[2J??: caf????");
}

TEST_F(Progress, FitsOnOneLine) {
  Terminal terminal;
  const ProgressLine line;
  ShowStage("", std::string(300, 'x'));
  EXPECT_EQ(terminal.Shown(), kWipe + std::string(78, 'x'));
  WaitVisibly(seconds(7));
  EXPECT_EQ(terminal.Shown(), kWipe + std::string(65, 'x') + " (waited 7 s)");
}

TEST_F(Progress, FitsANarrowTerminal) {
  Terminal terminal(40);
  const ProgressLine line;
  ShowStage("", std::string(300, 'x'));
  EXPECT_EQ(terminal.Shown(), kWipe + std::string(39, 'x'));
  WaitVisibly(seconds(12));
  EXPECT_EQ(terminal.Shown(), kWipe + std::string(25, 'x') + " (waited 12 s)");
}

TEST_F(Progress, FitsAnAbsurdlyNarrowTerminal) {
  Terminal terminal(5);
  const ProgressLine line;
  ShowStage("", "validating");
  EXPECT_EQ(terminal.Shown(), std::string(kWipe) + "vali");
  WaitVisibly(seconds(12));
  EXPECT_EQ(terminal.Shown(), std::string(kWipe) + " (wa");
}

TEST_F(Progress, DoesNotUseAllOfAWideTerminal) {
  Terminal terminal(200);
  const ProgressLine line;
  ShowStage("", std::string(300, 'x'));
  EXPECT_EQ(terminal.Shown(), kWipe + std::string(78, 'x'));
}

}  // namespace
}  // namespace kova
