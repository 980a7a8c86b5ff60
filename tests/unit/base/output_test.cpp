#include "base/output.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "output_capture.h"
#include "syslog_capture.h"

namespace kova {
namespace {

using test::OutputCapture;
using test::SyslogCapture;
using testing::ElementsAre;
using testing::IsEmpty;

// Standard output leads to a full disk while the object lives.
class FullDisk {
 public:
  FullDisk() : kept_(dup(STDOUT_FILENO)) {
    (void)std::fflush(stdout);
    const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
    dup2(full, STDOUT_FILENO);
    close(full);
  }
  ~FullDisk() {
    dup2(kept_, STDOUT_FILENO);
    close(kept_);
  }
  FullDisk(const FullDisk&) = delete;
  FullDisk& operator=(const FullDisk&) = delete;

 private:
  int kept_;
};

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
      const FullDisk disk;
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
