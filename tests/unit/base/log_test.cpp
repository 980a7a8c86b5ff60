#include "base/log.h"

#include <gtest/gtest.h>
#include <syslog.h>

#include <cerrno>
#include <string>

#include "platform/error.h"
#include "platform/files.h"
#include "syslog_capture.h"

namespace kova {
namespace {

using test::SyslogCapture;
using test::SyslogMessage;

TEST(LogError, PutsTagAndLineInFront) {
  SyslogCapture log;
  const int line = __LINE__ + 1;
  LogError("client_v2", "Failed to %s with [%ld]", "order", 400L);
  ASSERT_EQ(log.Messages().size(), 1U);
  const SyslogMessage message = log.Messages()[0];
  EXPECT_EQ(message.priority, LOG_ERR);
  EXPECT_EQ(message.text, "client_v2:" + std::to_string(line) + " Failed to order with [400]");
}

TEST(LogWarning, IsBelowErrorsAndOfTheSameForm) {
  SyslogCapture log;
  LogWarning(Site("tag", 7), "%d of %s", 2, "three");
  ASSERT_EQ(log.Messages().size(), 1U);
  EXPECT_EQ(log.Messages()[0].priority, LOG_WARNING);
  EXPECT_EQ(log.Messages()[0].text, "tag:7 2 of three");
}

TEST(LogError, TakesAnotherSite) {
  SyslogCapture log;
  LogError(Site("utils.cpp", 57), "text");
  EXPECT_EQ(log.Messages().at(0).text, "utils.cpp:57 text");
}

// What errno is after a message to a log that ended since the message before.
template <class Log>
int ErrnoAfter(Log write) {
  SyslogCapture log;
  write();
  log.HangUp();
  errno = EDOM;
  write();
  return errno;
}

TEST(LogError, KeepsErrnoWhenTheLogHasEnded) {
  EXPECT_EQ(ErrnoAfter([] { LogError("utils", "text"); }), EDOM);
  EXPECT_EQ(ErrnoAfter([] { LogDebugPriority("utils", "text"); }), EDOM);
}

TEST(LogError, PrintsArgumentsLiterally) {
  SyslogCapture log;
  LogError("utils", "[%s]", "%s%n 100%");
  EXPECT_EQ(log.Texts()[0], "utils:# [%s%n 100%]");
}

TEST(LogError, KeepsLongTextsWhole) {
  SyslogCapture log;
  const std::string text(5000, 'x');
  LogError("utils", "%s", text.c_str());
  EXPECT_EQ(log.Texts()[0], "utils:# " + text);
}

TEST(LogDebugPriority, IsBelowErrors) {
  SyslogCapture log;
  LogDebugPriority("utils", "No %s DDNS%c", "kova", '.');
  ASSERT_EQ(log.Messages().size(), 1U);
  EXPECT_EQ(log.Messages()[0].priority, LOG_DEBUG);
  EXPECT_EQ(log.Texts()[0], "utils:# No kova DDNS.");
}

TEST(OnOneLine, PutsABlankInThePlaceOfEachControl) {
  EXPECT_EQ(OnOneLine("a\r\nb\tc\x1f \x7f~\xc3\xa9"), "a  b c   ~\xc3\xa9");
  EXPECT_EQ(OnOneLine(std::string("\0x", 2)), " x");
}

TEST(ErrorTriple, NamesTheCodeAndThePlaceOfTheLastFailure) {
  int handle = -1;
  EXPECT_LT(KLIBCFileLockTimeByFile("/tmp", 1, 0, &handle), 0);
  const std::string place =
      std::string(KLIBCErrorGetFile()) + ":" + std::to_string(KLIBCErrorGetLine()) + "]";
  EXPECT_EQ(KLIBCErrGet(), EINVAL);
  EXPECT_EQ(ErrorTriple(), "[0x0016 " + place);
}

}  // namespace
}  // namespace kova
