#include "base/file_lock.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <filesystem>

#include "syslog_capture.h"

namespace kova {
namespace {

using std::chrono::seconds;
using test::SyslogCapture;

class FileLockTest : public testing::Test {
 protected:
  FileLockTest() { std::filesystem::remove(kPath); }

  // Whether anybody else could have the lock now.
  static bool IsFree() {
    const int file = open(kPath, O_RDONLY | O_CREAT, 0600);
    const bool had = flock(file, LOCK_EX | LOCK_NB) == 0;
    close(file);
    return had;
  }

  static constexpr char kPath[] = "/tmp/base_file_lock_test";
  SyslogCapture log_;
};

TEST_F(FileLockTest, HoldsTheFileForItsLife) {
  {
    const FileLock lock("tag", kPath, seconds(0));
    EXPECT_TRUE(lock.Held());
    EXPECT_TRUE(lock.Outcome());
    EXPECT_FALSE(IsFree());
  }
  EXPECT_TRUE(IsFree());
  EXPECT_TRUE(log_.Messages().empty());
}

TEST_F(FileLockTest, SaysThatItCouldNotBeHad) {
  const FileLock first("tag", kPath, seconds(0));
  {
    const FileLock second("other", kPath, seconds(0));
    EXPECT_FALSE(second.Held());
    EXPECT_EQ(second.Outcome().Text(),
              "cannot lock [/tmp/base_file_lock_test]: Connection timed out");
  }
  EXPECT_FALSE(IsFree());  // the first one's
  EXPECT_EQ(log_.Texts(),
            std::vector<std::string>{"other:# Lock list file [/tmp/base_file_lock_test] failed"});
}

TEST_F(FileLockTest, IsHeldOnAnyDescriptor) {
  const int input = dup(STDIN_FILENO);
  close(STDIN_FILENO);
  {
    const FileLock lock("tag", kPath, seconds(0));
    EXPECT_TRUE(lock.Held());
    EXPECT_NE(fcntl(STDIN_FILENO, F_GETFD), -1);
  }
  EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1);
  EXPECT_TRUE(IsFree());
  if (input >= 0) {
    dup2(input, STDIN_FILENO);
    close(input);
  }
}

TEST_F(FileLockTest, SaysThatItCouldNotBeReleased) {
  {
    const FileLock lock("tag", kPath, seconds(0));
    ASSERT_TRUE(lock.Held());
    for (int descriptor = 3; descriptor < 100; ++descriptor) {
      const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
      std::error_code error;
      if (std::filesystem::read_symlink(link, error) == kPath) close(descriptor);
    }
  }
  EXPECT_EQ(log_.Texts(),
            std::vector<std::string>{"tag:# Failed to unlock /tmp/base_file_lock_test"});
}

}  // namespace
}  // namespace kova
