#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>

#include "letsencrypt_cli/commands.h"
#include "output_capture.h"
#include "syslog_capture.h"

namespace kova {
namespace {

using testing::ElementsAre;

TEST(OutcomeTest, AFailureIsOneLine) {
  test::OutputCapture output;
  PrintFailure(SLError(102, "x", "utils", 1));
  EXPECT_EQ(output.Text(), "{\"error\":102,\"file\":\"utils\",\"msg\":\"x\"}\n");
}

TEST(OutcomeTest, ASuccessIsStyled) {
  test::OutputCapture output;
  PrintSuccess("cert_path", "/a/b");
  EXPECT_EQ(output.Text(), "{\n   \"cert_path\" : \"/a/b\",\n   \"error\" : 0\n}\n");
}

// Standard output is a device that is always full.
class FullOutput {
 public:
  FullOutput() : kept_(dup(STDOUT_FILENO)) {
    std::fflush(stdout);
    const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
    dup2(full, STDOUT_FILENO);
    close(full);
  }
  ~FullOutput() {
    std::fflush(stdout);
    std::clearerr(stdout);
    dup2(kept_, STDOUT_FILENO);
    close(kept_);
  }
  FullOutput(const FullOutput&) = delete;
  FullOutput& operator=(const FullOutput&) = delete;

 private:
  int kept_;
};

TEST(OutcomeTest, WhatCannotBeWrittenIsInTheLogOnOneLine) {
  test::SyslogCapture syslog;
  {
    const FullOutput output;
    PrintSuccess("id", "x");
    PrintFailure(SLError(102, "a\nb", "utils", 1));
  }
  EXPECT_THAT(
      syslog.Texts(),
      ElementsAre("kova-letsencrypt:# Failed to write to standard output. [No space left on "
                  "device]: [{    \"error\" : 0,    \"id\" : \"x\" }]",
                  "kova-letsencrypt:# Failed to write to standard output. [No space left on "
                  "device]: [{\"error\":102,\"file\":\"utils\",\"msg\":\"a\\nb\"}]"));
}

}  // namespace
}  // namespace kova
