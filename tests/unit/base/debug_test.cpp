#include "base/debug.h"

#include <gtest/gtest.h>
#include <stdio_ext.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>

#include "base/progress.h"
#include "syslog_capture.h"
#include "terminal.h"

namespace kova {
namespace {

using test::SyslogCapture;

class Debug : public testing::Test {
 protected:
  Debug() { testing::internal::CaptureStdout(); }
  ~Debug() override {
    SetDebugLevel(0);
    SetDebugToSyslog(0);
    if (!taken_) testing::internal::GetCapturedStdout();
  }

  std::string Output() {
    taken_ = true;
    return testing::internal::GetCapturedStdout();
  }

 private:
  bool taken_ = false;
};

TEST_F(Debug, IsQuietAtFirst) {
  EXPECT_EQ(DebugLevel(), 0);
  EXPECT_FALSE(DebugToSyslog());
  DebugStep("step");
  DebugDetail("detail");
  EXPECT_EQ(Output(), "");
}

TEST_F(Debug, ShowsStepsAtLevel1) {
  SetDebugLevel(1);
  DebugStep("==> %s [%d]", "start", 5);
  DebugDetail("detail");
  EXPECT_EQ(Output(), "DEBUG: ==> start [5]\n");
}

TEST_F(Debug, ShowsDetailsAtLevel2) {
  SetDebugLevel(2);
  DebugStep("step");
  DebugDetail("detail %s", "%n");
  EXPECT_EQ(Output(), "DEBUG: step\nDEBUG: detail %n\n");
}

TEST_F(Debug, KeepsErrnoWhenItsOutputFails) {
  SetDebugLevel(1);
  {
    const test::FullDisk full(STDOUT_FILENO);
    errno = EDOM;
    DebugStep("step");
    EXPECT_EQ(errno, EDOM);
    ASSERT_NE(std::ferror(stdout), 0);
    __fpurge(stdout);
    std::clearerr(stdout);
  }
  EXPECT_EQ(Output(), "");
}

TEST_F(Debug, KeepsErrnoWhenTheLogHasEnded) {
  SyslogCapture log;
  SetDebugLevel(1);
  SetDebugToSyslog(1);
  DebugStep("step");
  log.HangUp();
  errno = EDOM;
  DebugStep("step");
  EXPECT_EQ(errno, EDOM);
}

TEST_F(Debug, GoesToSyslogWithoutPrefixWhenAsked) {
  SyslogCapture log;
  SetDebugLevel(2);
  SetDebugToSyslog(7);
  EXPECT_TRUE(DebugToSyslog());
  DebugStep("step %d", 1);
  DebugDetail("detail");
  EXPECT_EQ(Output(), "");
  ASSERT_EQ(log.Messages().size(), 2U);
  EXPECT_EQ(log.Messages()[0].text, "step 1");
  EXPECT_EQ(log.Messages()[0].priority, LOG_ERR);
  EXPECT_EQ(log.Messages()[1].text, "detail");
}

TEST_F(Debug, IsQuietInSyslogTooBelowItsLevel) {
  SyslogCapture log;
  SetDebugToSyslog(1);
  DebugStep("step");
  SetDebugLevel(1);
  DebugDetail("detail");
  EXPECT_TRUE(log.Messages().empty());
}

TEST_F(Debug, WipesTheProgressLineFirst) {
  test::Terminal terminal;
  SetDebugLevel(1);
  {
    const ProgressLine line;
    DebugStep("nothing to wipe");
    ShowStage("", "stage");
    DebugStep("text");
    EXPECT_EQ(terminal.Shown(), "\r\033[Kstage\r\033[K");
  }
  terminal.End();
  EXPECT_EQ(Output(), "DEBUG: nothing to wipe\nDEBUG: text\n");
}

}  // namespace
}  // namespace kova
