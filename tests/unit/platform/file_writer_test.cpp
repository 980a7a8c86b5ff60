#include "platform/file_writer.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <string_view>
#include <thread>

#include "faults.h"
#include "host_files.h"
#include "platform/fd.h"
#include "scratch.h"

namespace kova::platform {
namespace {

using test::FaultScope;
using test::InChild;
using test::ListFolder;
using test::ModeOf;
using test::ReadFile;
using test::Scratch;
using test::StatusOf;
using test::Umask;
using test::WriteFile;
using testing::ElementsAre;
using testing::IsEmpty;

class FileWriterTest : public testing::Test {
 protected:
  Scratch scratch_;
  std::string path_ = scratch_.Path("file");
};

TEST_F(FileWriterTest, AFileIsReplacedWhole) {
  WriteFile(path_, "the old and longer content", 0644);
  EXPECT_EQ(ReplaceFile(path_, "new\0bytes", 0600), 0);
  EXPECT_EQ(ReplaceFile(path_, std::string_view("new\0bytes", 9), 0600), 0);
  EXPECT_EQ(ReadFile(path_), std::string("new\0bytes", 9));
  EXPECT_EQ(ModeOf(path_), 0600U);
  EXPECT_THAT(ListFolder(scratch_.Folder()), ElementsAre("file"));
}

TEST_F(FileWriterTest, AnEmptyFileCanBeWritten) {
  EXPECT_EQ(ReplaceFile(path_, "", 0400), 0);
  EXPECT_EQ(ReadFile(path_), "");
  EXPECT_EQ(ModeOf(path_), 0400U);
}

TEST_F(FileWriterTest, TheUmaskNeitherWidensNorNarrowsTheMode) {
  for (const mode_t mask : {0U, 022U, 077U, 0777U}) {
    for (const mode_t mode : {0400U, 0600U, 0644U, 0666U}) {
      const Umask umask(mask);
      EXPECT_EQ(ReplaceFile(path_, "secret", mode), 0);
      EXPECT_EQ(ModeOf(path_), mode) << std::oct << mask;
      EXPECT_EQ(StageFile(path_ + ".temp", "secret", mode), 0);
      EXPECT_EQ(ModeOf(path_ + ".temp"), mode) << std::oct << mask;
    }
  }
}

TEST_F(FileWriterTest, ModeAndOwnerAreRightBeforeTheFirstByte) {
  const Umask umask(0);
  FaultScope scope;
  int writes = 0;
  scope.faults.on_write = [&](int fd) {
    struct stat status {};
    ASSERT_EQ(fstat(fd, &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0440U);
    EXPECT_EQ(status.st_uid, 12U);
    EXPECT_EQ(status.st_gid, 34U);
    EXPECT_EQ(status.st_size, 0);
    ++writes;
  };
  const FileOwner owner{12, 34};
  EXPECT_EQ(ReplaceFile(path_, "secret", 0440, &owner), 0);
  EXPECT_EQ(writes, 1);
  EXPECT_EQ(StatusOf(path_).st_uid, 12U);
  EXPECT_EQ(StatusOf(path_).st_gid, 34U);
}

TEST_F(FileWriterTest, DataIsOnTheDiskBeforeTheNameAndTheNameBeforeTheReturn) {
  FaultScope scope;
  EXPECT_EQ(ReplaceFile(path_, "data", 0600), 0);
  EXPECT_THAT(scope.faults.calls,
              ElementsAre("fchmod", "write", "fsync file", "link", "fsync folder"));
  scope.faults.calls.clear();
  EXPECT_EQ(ReplaceFile(path_, "more", 0600), 0);
  EXPECT_THAT(scope.faults.calls,
              ElementsAre("fchmod", "write", "fsync file", "link", "rename", "fsync folder"));
  scope.faults.calls.clear();
  scope.faults.every_file_has_a_name = true;
  EXPECT_EQ(ReplaceFile(path_, "most", 0600), 0);
  EXPECT_THAT(scope.faults.calls,
              ElementsAre("fchmod", "write", "fsync file", "rename", "fsync folder"));
}

TEST_F(FileWriterTest, ShortAndInterruptedWritesAreContinued) {
  FaultScope scope;
  scope.faults.largest_write = 3;
  scope.faults.interrupted_writes = 2;
  EXPECT_EQ(ReplaceFile(path_, "0123456789", 0600), 0);
  EXPECT_EQ(ReadFile(path_), "0123456789");
}

TEST_F(FileWriterTest, AFailureOfAnyStepLeavesTheOldFileAndNoOther) {
  WriteFile(path_, "old", 0644);
  const FileOwner owner{0, 0};
  for (const bool named : {false, true}) {
    for (const char* step : {"fchown", "fchmod", "write", "fsync file", "link", "rename"}) {
      if (named && std::string_view(step) == "link") continue;
      for (const int reason : {EIO, EDQUOT, ENOSPC, EFBIG}) {
        FaultScope scope;
        scope.faults.every_file_has_a_name = named;
        scope.faults.failing = step;
        scope.faults.error = reason;
        const WriteResult result = ReplaceFile(path_, "new", 0600, &owner);
        EXPECT_EQ(result, reason) << step;
        EXPECT_FALSE(result.InPlace()) << step;
        EXPECT_TRUE(scope.faults.failing.empty()) << step << " was not reached";
        EXPECT_EQ(ReadFile(path_), "old") << step;
        EXPECT_EQ(ModeOf(path_), 0644U) << step;
        EXPECT_THAT(ListFolder(scratch_.Folder()), ElementsAre("file")) << step;
      }
    }
  }
}

TEST_F(FileWriterTest, AFailureOfAnyStepLeavesNoNewFile) {
  for (const bool named : {false, true}) {
    for (const char* step : {"fchmod", "write", "fsync file", named ? "rename" : "link"}) {
      FaultScope scope;
      scope.faults.every_file_has_a_name = named;
      scope.faults.failing = step;
      scope.faults.error = EDQUOT;
      const WriteResult result = ReplaceFile(path_, "new", 0600);
      EXPECT_EQ(result, EDQUOT) << step;
      EXPECT_FALSE(result.InPlace()) << step;
      EXPECT_TRUE(scope.faults.failing.empty()) << step << " was not reached";
      EXPECT_THAT(ListFolder(scratch_.Folder()), IsEmpty()) << step;
    }
  }
}

TEST_F(FileWriterTest, ANewFileHasNoNameUntilItIsFinished) {
  FaultScope scope;
  int writes = 0;
  scope.faults.on_write = [&](int) {
    EXPECT_THAT(ListFolder(scratch_.Folder()), IsEmpty());
    ++writes;
  };
  EXPECT_EQ(ReplaceFile(path_, "new", 0600), 0);
  EXPECT_EQ(writes, 1);
  EXPECT_EQ(ReadFile(path_), "new");
}

TEST_F(FileWriterTest, ANameOfFullLengthCanBeWrittenAndReplaced) {
  const std::string longest = scratch_.Path(std::string(255, 'n'));
  for (const bool named : {false, true}) {
    FaultScope scope;
    scope.faults.every_file_has_a_name = named;
    EXPECT_EQ(ReplaceFile(longest, "new", 0600), 0);
    EXPECT_EQ(ReplaceFile(longest, "newer", 0600), 0);
    EXPECT_EQ(ReadFile(longest), "newer");
    EXPECT_THAT(ListFolder(scratch_.Folder()), ElementsAre(std::string(255, 'n')));
    unlink(longest.c_str());
  }
}

TEST_F(FileWriterTest, WhatKilledWritersLeftIsRemovedByTheNext) {
  for (const bool named : {false, true}) {
    WriteFile(path_, "old");
    WriteFile(scratch_.Path(".file.aB3xYz.kova"), "cut");
    WriteFile(scratch_.Path(".file.000000.kova"), "");
    FaultScope scope;
    scope.faults.every_file_has_a_name = named;
    EXPECT_EQ(ReplaceFile(path_, "new", 0600), 0);
    EXPECT_THAT(ListFolder(scratch_.Folder()), ElementsAre("file")) << named;
  }
}

TEST_F(FileWriterTest, AWriterThatIsKilledInAnyStepLeavesNothingForGood) {
  for (const bool named : {false, true}) {
    for (const char* step : {"write", "fsync file", "link", "rename", "fsync folder"}) {
      WriteFile(path_, "old", 0644);
      EXPECT_EQ(InChild([&] {
                  FaultScope scope;
                  scope.faults.every_file_has_a_name = named;
                  scope.faults.deadly = step;
                  (void)ReplaceFile(path_, "new", 0600);
                  return named && std::string_view(step) == "link" ? 128 + SIGKILL : 0;
                }),
                128 + SIGKILL)
          << step;
      EXPECT_THAT(ReadFile(path_), testing::AnyOf("old", "new")) << step;
      EXPECT_EQ(ReplaceFile(path_, "newest", 0600), 0);
      EXPECT_THAT(ListFolder(scratch_.Folder()), ElementsAre("file")) << step;
    }
  }
}

TEST_F(FileWriterTest, WhatALivingWriterHoldsIsLeft) {
  const std::string held = scratch_.Path(".file.aB3xYz.kova");
  WriteFile(path_, "old");
  WriteFile(held, "being written");
  const Fd writer(open(held.c_str(), O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(flock(writer.Get(), LOCK_EX), 0);
  EXPECT_EQ(ReplaceFile(path_, "new", 0600), 0);
  EXPECT_THAT(ListFolder(scratch_.Folder()), ElementsAre(".file.aB3xYz.kova", "file"));
}

TEST_F(FileWriterTest, WritersAtTheSameTimeDoNotHarmEachOther) {
  std::vector<std::thread> writers;
  for (int writer = 0; writer < 8; ++writer) {
    writers.emplace_back([&, writer] {
      for (int i = 0; i < 50; ++i) {
        EXPECT_EQ(ReplaceFile(path_, std::string(1000, static_cast<char>('a' + writer)), 0600), 0);
      }
    });
  }
  for (std::thread& writer : writers) writer.join();
  const std::string content = ReadFile(path_);
  EXPECT_EQ(content, std::string(1000, content.at(0)));
  EXPECT_THAT(ListFolder(scratch_.Folder()), ElementsAre("file"));
}

TEST_F(FileWriterTest, WhatIsNotOfThisWritersMakingIsLeft) {
  WriteFile(path_, "old");
  const std::vector<std::string> names = {
      ".file.aB3xY.kova",   ".file.aB3xYz.kov", ".file.aB3xY-.kova", ".file.kova",
      ".files.aB3xYz.kova", "file.aB3xYz",      "file.aB3xYz.kova",  "file.backup"};
  for (const std::string& name : names) WriteFile(scratch_.Path(name), "another's");
  ASSERT_EQ(symlink("file.backup", scratch_.Path(".file.aaaaaa.kova").c_str()), 0);
  ASSERT_EQ(mkdir(scratch_.Path(".file.bbbbbb.kova").c_str(), 0755), 0);
  ASSERT_EQ(mkfifo(scratch_.Path(".file.cccccc.kova").c_str(), 0600), 0);
  const auto before = ListFolder(scratch_.Folder());
  EXPECT_EQ(ReplaceFile(path_, "new", 0600), 0);
  EXPECT_EQ(ListFolder(scratch_.Folder()), before);
}

TEST_F(FileWriterTest, AFailedWriteAfterAnEarlierGoodOneLeavesTheOldFile) {
  WriteFile(path_, "old", 0644);
  FaultScope scope;
  scope.faults.largest_write = 1;
  scope.faults.on_write = [&](int) {
    if (scope.faults.calls.size() == 3) scope.faults.failing = "write";
    scope.faults.error = ENOSPC;
  };
  EXPECT_EQ(ReplaceFile(path_, "new", 0600), ENOSPC);
  EXPECT_EQ(ReadFile(path_), "old");
  EXPECT_THAT(ListFolder(scratch_.Folder()), ElementsAre("file"));
}

TEST_F(FileWriterTest, AFolderThatCannotBeFlushedIsReported) {
  FaultScope scope;
  scope.faults.failing = "fsync folder";
  scope.faults.error = EIO;
  const WriteResult made = ReplaceFile(path_, "new", 0600);
  EXPECT_EQ(made, EIO);
  EXPECT_TRUE(made.InPlace());
  EXPECT_EQ(ReadFile(path_), "new");
  scope.faults.failing = "fsync folder";
  const WriteResult replaced = ReplaceFile(path_, "newer", 0600);
  EXPECT_EQ(replaced, EIO);
  EXPECT_TRUE(replaced.InPlace());
  EXPECT_EQ(ReadFile(path_), "newer");
  EXPECT_EQ(StageFile(path_ + ".temp", "newest", 0600), 0);
  scope.faults.failing = "fsync folder";
  const WriteResult committed = CommitStaged(path_ + ".temp", path_);
  EXPECT_EQ(committed, EIO);
  EXPECT_TRUE(committed.InPlace());
}

TEST_F(FileWriterTest, AFileSystemWithoutFolderFlushIsGoodEnough) {
  FaultScope scope;
  scope.faults.failing = "fsync folder";
  scope.faults.error = EINVAL;
  EXPECT_EQ(ReplaceFile(path_, "new", 0600), 0);
}

TEST_F(FileWriterTest, AFullDiskLeavesTheOldFileAndNoOther) {
  ASSERT_EQ(mount("tmpfs", scratch_.Folder().c_str(), "tmpfs", 0, "size=64k"), 0);
  WriteFile(path_, "old", 0644);
  EXPECT_EQ(ReplaceFile(path_, std::string(200'000, 'x'), 0600), ENOSPC);
  EXPECT_EQ(ReadFile(path_), "old");
  EXPECT_THAT(ListFolder(scratch_.Folder()), ElementsAre("file"));
  EXPECT_EQ(StageFile(path_ + ".temp", std::string(200'000, 'x'), 0600), ENOSPC);
  EXPECT_THAT(ListFolder(scratch_.Folder()), ElementsAre("file"));
  ASSERT_EQ(umount(scratch_.Folder().c_str()), 0);
}

TEST_F(FileWriterTest, AFileSizeLimitLeavesTheOldFileAndNoOther) {
  WriteFile(path_, "old", 0644);
  const int result = InChild([&] {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{1000, 1000};
    setrlimit(RLIMIT_FSIZE, &limit);
    return ReplaceFile(path_, std::string(5000, 'x'), 0600);
  });
  EXPECT_EQ(result, EFBIG);
  EXPECT_EQ(ReadFile(path_), "old");
  EXPECT_THAT(ListFolder(scratch_.Folder()), ElementsAre("file"));
}

TEST_F(FileWriterTest, AMissingFolderIsAFailure) {
  EXPECT_EQ(ReplaceFile(scratch_.Path("no/file"), "x", 0600), ENOENT);
  EXPECT_EQ(StageFile(scratch_.Path("no/file"), "x", 0600), ENOENT);
  EXPECT_THAT(ListFolder(scratch_.Folder()), IsEmpty());
}

TEST_F(FileWriterTest, AFolderOfThatNameIsLeftAlone) {
  ASSERT_EQ(mkdir(path_.c_str(), 0755), 0);
  EXPECT_EQ(ReplaceFile(path_, "x", 0600), EISDIR);
  EXPECT_EQ(StageFile(path_, "x", 0600), EISDIR);
  EXPECT_THAT(ListFolder(scratch_.Folder()), ElementsAre("file"));
  EXPECT_TRUE(S_ISDIR(StatusOf(path_).st_mode));
}

TEST_F(FileWriterTest, ALinkIsReplacedAndItsTargetLeftAlone) {
  WriteFile(scratch_.Path("target"), "precious", 0640);
  ASSERT_EQ(symlink("target", path_.c_str()), 0);
  EXPECT_EQ(ReplaceFile(path_, "new", 0600), 0);
  EXPECT_TRUE(S_ISREG(StatusOf(path_).st_mode));
  EXPECT_EQ(ReadFile(path_), "new");
  EXPECT_EQ(ReadFile(scratch_.Path("target")), "precious");
}

TEST_F(FileWriterTest, ALinkAtTheStagingNameIsRemovedNotFollowed) {
  WriteFile(scratch_.Path("target"), "precious", 0640);
  ASSERT_EQ(symlink("target", path_.c_str()), 0);
  EXPECT_EQ(StageFile(path_, "staged", 0600), 0);
  EXPECT_TRUE(S_ISREG(StatusOf(path_).st_mode));
  EXPECT_EQ(ReadFile(path_), "staged");
  EXPECT_EQ(ReadFile(scratch_.Path("target")), "precious");
  EXPECT_EQ(ModeOf(scratch_.Path("target")), 0640U);
}

TEST_F(FileWriterTest, ALeftoverAtTheStagingNameIsReplacedWithItsMode) {
  WriteFile(path_, "a longer leftover of a run that was killed", 0666);
  EXPECT_EQ(StageFile(path_, "staged", 0600), 0);
  EXPECT_EQ(ReadFile(path_), "staged");
  EXPECT_EQ(ModeOf(path_), 0600U);
}

TEST_F(FileWriterTest, ALinkPlantedAtTheVeryLastMomentIsNotFollowed) {
  WriteFile(scratch_.Path("target"), "precious", 0640);
  FaultScope scope;
  scope.faults.on_unlink = [&](const char* path) { EXPECT_EQ(symlink("target", path), 0); };
  EXPECT_EQ(StageFile(path_, "staged", 0600), EEXIST);
  scope.faults.on_unlink = nullptr;
  EXPECT_EQ(ReadFile(scratch_.Path("target")), "precious");
  EXPECT_TRUE(S_ISLNK(StatusOf(path_).st_mode));  // not ours to remove
}

TEST_F(FileWriterTest, AStagingNameThatIsTakenIsLeftAloneForAnother) {
  WriteFile(scratch_.Path("target"), "precious", 0640);
  ASSERT_EQ(symlink("target", scratch_.Path(".file.aaaaaa.kova").c_str()), 0);
  ASSERT_EQ(mkdir(scratch_.Path(".file.bbbbbb.kova").c_str(), 0755), 0);
  for (const bool named : {false, true}) {
    WriteFile(path_, "old");
    FaultScope scope;
    scope.faults.every_file_has_a_name = named;
    scope.faults.random = {0, 1, 2};
    EXPECT_EQ(ReplaceFile(path_, "new", 0600), 0);
    EXPECT_TRUE(scope.faults.random.empty());
    EXPECT_EQ(ReadFile(path_), "new");
    EXPECT_EQ(ReadFile(scratch_.Path("target")), "precious");
    EXPECT_THAT(ListFolder(scratch_.Folder()),
                ElementsAre(".file.aaaaaa.kova", ".file.bbbbbb.kova", "file", "target"));
  }
}

TEST_F(FileWriterTest, StagingAndCommittingAreTwoSteps) {
  WriteFile(path_, "old", 0644);
  const std::string staging = path_ + ".temp";
  EXPECT_EQ(StageFile(staging, "new", 0600), 0);
  EXPECT_EQ(ReadFile(path_), "old");
  EXPECT_EQ(ReadFile(staging), "new");
  EXPECT_EQ(CommitStaged(staging, path_), 0);
  EXPECT_EQ(ReadFile(path_), "new");
  EXPECT_THAT(ListFolder(scratch_.Folder()), ElementsAre("file"));
}

TEST_F(FileWriterTest, CommittingNothingIsAFailure) {
  WriteFile(path_, "old", 0644);
  EXPECT_EQ(CommitStaged(path_ + ".temp", path_), ENOENT);
  EXPECT_EQ(ReadFile(path_), "old");
}

TEST_F(FileWriterTest, ANameWithoutFolderIsInTheCurrentOne) {
  const int result = InChild([&] {
    if (chdir(scratch_.Folder().c_str()) != 0) return 1;
    return static_cast<int>(ReplaceFile("relative", "x", 0600));
  });
  EXPECT_EQ(result, 0);
  EXPECT_EQ(ReadFile(scratch_.Path("relative")), "x");
}

TEST_F(FileWriterTest, TheStagingNameIsOneThatCronIgnores) {
  FaultScope scope;
  std::vector<std::string> seen;
  scope.faults.every_file_has_a_name = true;
  scope.faults.on_write = [&](int) { seen = ListFolder(scratch_.Folder()); };
  EXPECT_EQ(ReplaceFile(path_, "x", 0644), 0);
  ASSERT_EQ(seen.size(), 1U);
  EXPECT_THAT(seen[0], testing::MatchesRegex("\\.file\\.[a-zA-Z0-9]{6}\\.kova"));
}

}  // namespace
}  // namespace kova::platform
