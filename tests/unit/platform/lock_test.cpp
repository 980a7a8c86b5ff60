#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <thread>

#include "host_files.h"
#include "platform/error.h"
#include "platform/files.h"
#include "scratch.h"

namespace kova::platform {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using test::InChild;
using test::ModeOf;
using test::ReadFile;
using test::Scratch;
using test::StatusOf;
using test::Umask;
using test::WriteFile;

class LockTest : public testing::Test {
 protected:
  int Lock(int exclusive, int timeout, int* handle) {
    const auto start = steady_clock::now();
    const int result = KLIBCFileLockTimeByFile(path_, exclusive, timeout, handle);
    waited_ = steady_clock::now() - start;
    return result;
  }

  Scratch scratch_;
  std::string path_ = scratch_.Path("file.lock");
  steady_clock::duration waited_{};
};

TEST_F(LockTest, AMissingLockFileIsCreatedForItsOwnerAlone) {
  const Umask umask(0);
  int handle = -1;
  ASSERT_EQ(Lock(1, 0, &handle), 0);
  EXPECT_GE(handle, 0);
  EXPECT_EQ(ModeOf(path_), 0600U);
  EXPECT_EQ(ReadFile(path_), "");
  EXPECT_EQ(fcntl(handle, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
  EXPECT_EQ(KLIBCFileUnlockByFile(handle), 0);
  EXPECT_EQ(fcntl(handle, F_GETFD), -1);
}

TEST_F(LockTest, TheContentOfALockFileSurvives) {
  WriteFile(path_, "content", 0640);
  int handle = -1;
  ASSERT_EQ(Lock(1, 0, &handle), 0);
  EXPECT_EQ(KLIBCFileUnlockByFile(handle), 0);
  EXPECT_EQ(ReadFile(path_), "content");
  EXPECT_EQ(ModeOf(path_), 0640U);
}

TEST_F(LockTest, AnExclusiveLockKeepsEveryoneElseOut) {
  int holder = -1;
  ASSERT_EQ(Lock(1, 0, &holder), 0);
  for (const int exclusive : {0, 1}) {
    int handle = -1;
    EXPECT_LT(Lock(exclusive, 0, &handle), 0);
    EXPECT_EQ(KLIBCErrGet(), ETIMEDOUT);
    EXPECT_EQ(handle, -1);
  }
  EXPECT_EQ(KLIBCFileUnlockByFile(holder), 0);
  ASSERT_EQ(Lock(1, 0, &holder), 0);
  EXPECT_EQ(KLIBCFileUnlockByFile(holder), 0);
}

TEST_F(LockTest, SharedLocksGoTogether) {
  int first = -1;
  int second = -1;
  int writer = -1;
  ASSERT_EQ(Lock(0, 0, &first), 0);
  ASSERT_EQ(Lock(0, 0, &second), 0);
  EXPECT_LT(Lock(1, 0, &writer), 0);
  EXPECT_EQ(KLIBCFileUnlockByFile(first), 0);
  EXPECT_EQ(KLIBCFileUnlockByFile(second), 0);
}

TEST_F(LockTest, WaitingEndsWithTheTimeOut) {
  int holder = -1;
  int handle = -1;
  ASSERT_EQ(Lock(1, 0, &holder), 0);
  EXPECT_LT(Lock(1, 1, &handle), 0);
  EXPECT_EQ(KLIBCErrGet(), ETIMEDOUT);
  EXPECT_GE(waited_, seconds(1));
  EXPECT_LT(waited_, seconds(3));
  EXPECT_EQ(KLIBCFileUnlockByFile(holder), 0);
}

TEST_F(LockTest, ALockThatIsReleasedInTimeIsTaken) {
  int holder = -1;
  int handle = -1;
  ASSERT_EQ(Lock(1, 0, &holder), 0);
  std::thread release([&] {
    std::this_thread::sleep_for(milliseconds(300));
    KLIBCFileUnlockByFile(holder);
  });
  EXPECT_EQ(Lock(1, 10, &handle), 0);
  EXPECT_GE(waited_, milliseconds(250));
  EXPECT_LT(waited_, seconds(5));
  release.join();
  EXPECT_EQ(KLIBCFileUnlockByFile(handle), 0);
}

TEST_F(LockTest, ALockOfAProcessThatWasKilledIsFree) {
  int handle = -1;
  EXPECT_EQ(InChild([&] {
              int own = -1;
              if (KLIBCFileLockTimeByFile(path_, 1, 0, &own) == 0) kill(getpid(), SIGKILL);
              return 1;
            }),
            128 + SIGKILL);
  EXPECT_EQ(Lock(1, 0, &handle), 0);
  EXPECT_EQ(KLIBCFileUnlockByFile(handle), 0);
}

TEST_F(LockTest, AFileThatWasRemovedMeanwhileIsNotTakenForTheLock) {
  int holder = -1;
  int handle = -1;
  ASSERT_EQ(Lock(1, 0, &holder), 0);
  std::thread remover([&] {
    std::this_thread::sleep_for(milliseconds(200));
    unlink(path_.c_str());
    KLIBCFileUnlockByFile(holder);
  });
  ASSERT_EQ(Lock(1, 10, &handle), 0);
  remover.join();
  struct stat locked {};
  ASSERT_EQ(fstat(handle, &locked), 0);
  EXPECT_EQ(StatusOf(path_).st_ino, locked.st_ino);
  EXPECT_EQ(KLIBCFileUnlockByFile(handle), 0);
}

TEST_F(LockTest, ALinkIsRefusedAndNothingMadeThroughIt) {
  int handle = -1;
  ASSERT_EQ(symlink("target", path_.c_str()), 0);
  EXPECT_LT(Lock(1, 0, &handle), 0);
  EXPECT_EQ(KLIBCErrGet(), ELOOP);
  EXPECT_NE(access(scratch_.Path("target").c_str(), F_OK), 0);
  WriteFile(scratch_.Path("target"), "precious");
  EXPECT_LT(Lock(1, 0, &handle), 0);
  EXPECT_EQ(ReadFile(scratch_.Path("target")), "precious");
  EXPECT_EQ(handle, -1);
}

TEST_F(LockTest, OnlyARegularFileIsALockFile) {
  int handle = -1;
  ASSERT_EQ(mkfifo(path_.c_str(), 0666), 0);
  EXPECT_LT(Lock(1, 5, &handle), 0);
  EXPECT_EQ(KLIBCErrGet(), EINVAL);
  EXPECT_LT(waited_, seconds(2));
  ASSERT_EQ(unlink(path_.c_str()), 0);
  ASSERT_EQ(mkdir(path_.c_str(), 0755), 0);
  EXPECT_LT(Lock(1, 0, &handle), 0);
  EXPECT_EQ(KLIBCErrGet(), EINVAL);
  EXPECT_EQ(handle, -1);
}

TEST_F(LockTest, AFileThatAnotherUserMadeInAStickyFolderIsLockedAsWell) {
  ASSERT_EQ(chmod(scratch_.Folder().c_str(), 01777), 0);
  WriteFile(path_, "theirs", 0600);
  ASSERT_EQ(chown(path_.c_str(), 65534, 65534), 0);
  int handle = -1;
  ASSERT_EQ(Lock(1, 0, &handle), 0);
  EXPECT_EQ(KLIBCFileUnlockByFile(handle), 0);
  EXPECT_EQ(ReadFile(path_), "theirs");
  EXPECT_EQ(StatusOf(path_).st_uid, 65534U);
}

TEST_F(LockTest, AFileThatMayOnlyBeReadIsLockedAsWell) {
  WriteFile(path_, "", 0644);
  ASSERT_EQ(chmod(scratch_.Folder().c_str(), 0755), 0);
  EXPECT_EQ(InChild([&] {
              int handle = -1;
              if (setuid(65534) != 0) return 1;
              return KLIBCFileLockTimeByFile(path_, 1, 0, &handle) == 0 ? 0 : 2;
            }),
            0);
}

TEST_F(LockTest, TheFolderIsNotMade) {
  int handle = -1;
  EXPECT_LT(KLIBCFileLockTimeByFile(scratch_.Path("no/file.lock"), 1, 5, &handle), 0);
  EXPECT_EQ(KLIBCErrGet(), ENOENT);
}

TEST_F(LockTest, WhatIsNotHeldCannotBeReleased) {
  EXPECT_LT(KLIBCFileUnlockByFile(-1), 0);
  EXPECT_EQ(KLIBCErrGet(), EBADF);
}

TEST_F(LockTest, NoTwoHoldTheLockAtOnceWhileItsFileIsRemovedAgainAndAgain) {
  std::atomic<int> inside = 0;
  std::atomic<int> entered = 0;
  auto contend = [&](bool removes) {
    for (int i = 0; i < 30; ++i) {
      int handle = -1;
      if (KLIBCFileLockTimeByFile(path_, 1, 30, &handle) != 0) return;
      EXPECT_EQ(inside.fetch_add(1), 0);
      ++entered;
      std::this_thread::sleep_for(std::chrono::microseconds(200));
      if (removes) unlink(path_.c_str());
      --inside;
      KLIBCFileUnlockByFile(handle);
    }
  };
  std::thread one(contend, true);
  std::thread two(contend, false);
  std::thread three(contend, true);
  one.join();
  two.join();
  three.join();
  EXPECT_EQ(entered, 90);
}

}  // namespace
}  // namespace kova::platform
