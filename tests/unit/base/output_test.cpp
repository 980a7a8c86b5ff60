#include "base/output.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "output_capture.h"
#include "syslog_capture.h"
#include "terminal.h"

namespace kova {
namespace {

using test::FullDisk;
using test::OutputCapture;
using test::SyslogCapture;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(WriteResult, WritesTheTextAtOnce) {
  SyslogCapture log;
  OutputCapture output;
  EXPECT_TRUE(WriteResult("tag", "{}\n"));
  EXPECT_EQ(output.Text(), "{}\n");
  EXPECT_THAT(log.Messages(), IsEmpty());
}

TEST(WriteResult, PutsIntoTheLogWhatCannotBeWritten) {
  for (const int more : {0, 10000}) {  // which the stream holds, or does not
    SyslogCapture log;
    bool written = true;
    int reason = 0;
    {
      (void)std::fflush(stdout);
      const FullDisk disk(STDOUT_FILENO);
      written = WriteResult("tag", std::string(static_cast<size_t>(more), '\n') + "a\nb\n\n");
      reason = errno;
    }
    EXPECT_FALSE(written);
    EXPECT_EQ(reason, ENOSPC);
    EXPECT_EQ(std::ferror(stdout), 0);
    ASSERT_EQ(log.Messages().size(), 1U);
    EXPECT_EQ(log.Messages()[0].priority, LOG_ERR);
    if (more == 0) {
      EXPECT_THAT(log.Texts(), ElementsAre("tag:# Failed to write to standard output. "
                                           "[No space left on device]: [a b]"));
    }
  }
}

}  // namespace
}  // namespace kova
