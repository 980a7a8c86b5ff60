#include "base/status.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "platform/error.h"

namespace kova {
namespace {

TEST(StatusTest, IsDoneUntilItFailed) {
  const Status done;
  EXPECT_TRUE(done);
  EXPECT_EQ(done.Text(), "");
}

TEST(StatusTest, SaysWhatWasAttemptedOnWhatAndWhy) {
  const Status failed = Status::Failed("Failed to create", "/a/b", "No space left on device");
  EXPECT_FALSE(failed);
  EXPECT_EQ(failed.Text(), "Failed to create /a/b: No space left on device");
}

TEST(StatusTest, LeavesOutWhatIsEmpty) {
  EXPECT_EQ(Status::Failed("out of memory").Text(), "out of memory");
  EXPECT_EQ(Status::Failed("Failed to create", "", "why").Text(), "Failed to create: why");
  EXPECT_EQ(Status::Failed("", "/a/b", "why").Text(), "/a/b: why");
  EXPECT_FALSE(Status::Failed(""));
}

TEST(StatusTest, TakesTheCauseFromThePlatform) {
  platform::RecordError(ENOENT);
  EXPECT_EQ(Status::FailedCall("Broken", "[/x]").Text(), "Broken [/x]: No such file or directory");
  platform::RecordError(0);
  EXPECT_EQ(Status::FailedCall("Broken", "[/x]").Text(), "Broken [/x]");
}

TEST(StatusTest, HoldsAnyTextAsItIs) {
  const std::string text(100000, '[');
  EXPECT_EQ(Status::Failed(text + "%s\n", "\xff").Text(), text + "%s\n \xff");
}

}  // namespace
}  // namespace kova
