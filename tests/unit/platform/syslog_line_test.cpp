#include <gmock/gmock.h>
#include <syslog.h>

#include <cerrno>
#include <string>

#include "platform/error.h"
#include "syslog_capture.h"

namespace kova::platform {
namespace {

using test::SyslogCapture;
using testing::ElementsAre;

TEST(SyslogLineTest, ALineHasPriorityTagPositionAndText) {
  SyslogCapture log;
  PlatformLog(LOG_WARNING, "tag", 42, "%s is %d", "answer", 7);
  ASSERT_EQ(log.Messages().size(), 1U);
  EXPECT_EQ(log.Messages()[0].priority, LOG_WARNING);
  EXPECT_EQ(log.Messages()[0].text, "tag:42 answer is 7");
}

TEST(SyslogLineTest, TheReasonIsErrnoWhichStaysAsItIs) {
  SyslogCapture log;
  errno = ENOSPC;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat"  // %m is the C library's, not the language's
  PlatformLog(LOG_ERR, "tag", 1, "%d (%m)", 5);
#pragma GCC diagnostic pop
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_THAT(log.Texts(), ElementsAre("tag:# 5 (No space left on device)"));
}

TEST(SyslogLineTest, WhatIsFormattedInIsNoFormat) {
  SyslogCapture log;
  PlatformLog(LOG_ERR, "tag", 1, "[%s]", "%s%n%m");
  PlatformLog(LOG_ERR, "tag", 1, "%s", std::string(3000, 'x').c_str());
  EXPECT_THAT(log.Texts(), ElementsAre("tag:# [%s%n%m]", "tag:# " + std::string(3000, 'x')));
}

}  // namespace
}  // namespace kova::platform
