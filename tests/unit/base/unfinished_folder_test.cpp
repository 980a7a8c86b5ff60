#include "base/unfinished_folder.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <vector>

#include "host_files.h"
#include "syslog_capture.h"

namespace {

std::vector<int> mkdir_errors;  // of the next calls; then they do what they are for
int mkdir_calls = 0;
int marks_to_lose = 0;  // so many go as soon as they are made

}  // namespace

extern "C" {

int __real_mkdir(const char* path, mode_t mode);   // NOLINT: the linker's name
int __wrap_mkdir(const char* path, mode_t mode) {  // NOLINT: the linker's name
  ++mkdir_calls;
  if (mkdir_errors.empty()) return __real_mkdir(path, mode);
  errno = mkdir_errors.front();
  mkdir_errors.erase(mkdir_errors.begin());
  return -1;
}

int __real_mkostemps(char* path, int end, int flags);   // NOLINT: the linker's name
int __wrap_mkostemps(char* path, int end, int flags) {  // NOLINT: the linker's name
  const int file = __real_mkostemps(path, end, flags);
  if (marks_to_lose > 0) {
    --marks_to_lose;
    unlink(path);
  }
  return file;
}

}  // extern "C"

namespace kova::test {
namespace {

namespace fs = std::filesystem;

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;

class UnfinishedFolderTest : public ::testing::Test {
 protected:
  UnfinishedFolderTest() {
    mkdir_errors.clear();
    marks_to_lose = 0;
    fs::remove_all(parent_);
    fs::create_directories(parent_);
  }

  static void WriteInto(const std::string& folder, const std::string& name) {
    std::ofstream(folder + "/" + name) << "text";
  }

  // What a run leaves that makes a folder with that file and is killed.
  std::string FolderOfKilledRun(const std::string& file, bool is_kept = false) const {
    const pid_t run = fork();
    if (run == 0) {
      UnfinishedFolder folder;
      if (!folder.Make(parent_)) _exit(1);
      WriteInto(folder.Path(), file);
      if (is_kept && !folder.Keep()) _exit(1);
      kill(getpid(), SIGKILL);
    }
    waitpid(run, nullptr, 0);
    for (const fs::directory_entry& entry : fs::directory_iterator(parent_)) {
      if (entry.is_directory()) return entry.path();
    }
    return {};
  }

  std::vector<std::string> Names() const {
    std::vector<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(parent_)) {
      names.push_back(entry.path().filename());
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  const std::string parent_ = "/usr/kova/unfinished";
};

TEST_F(UnfinishedFolderTest, KeptFolderStaysWithoutAMark) {
  std::string path;
  {
    UnfinishedFolder folder;
    ASSERT_TRUE(folder.Make(parent_));
    path = folder.Path();
    EXPECT_THAT(path, MatchesRegex(parent_ + "/[A-Za-z0-9]{6}"));
    EXPECT_EQ(Names().size(), 2U);  // with its mark
    WriteInto(path, "file");
    ASSERT_TRUE(folder.Keep());
  }
  EXPECT_THAT(Names(), ElementsAre(fs::path(path).filename()));
  EXPECT_TRUE(fs::exists(path + "/file"));
  RemoveUnfinished(parent_);
  EXPECT_TRUE(fs::exists(path + "/file"));
}

TEST_F(UnfinishedFolderTest, FolderThatIsNotKeptGoesWithItsFiles) {
  {
    UnfinishedFolder folder;
    ASSERT_TRUE(folder.Make(parent_));
    WriteInto(folder.Path(), "file");
  }
  EXPECT_THAT(Names(), IsEmpty());
}

TEST_F(UnfinishedFolderTest, ModeIsTheOwnersAlone) {
  UnfinishedFolder folder;
  ASSERT_TRUE(folder.Make(parent_));
  struct stat status {};
  ASSERT_EQ(stat(folder.Path().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0700U);
}

TEST_F(UnfinishedFolderTest, SaysWhyThereIsNoMark) {
  std::ofstream(parent_ + "/file") << "text";
  UnfinishedFolder folder;
  EXPECT_FALSE(folder.Make(parent_ + "/file"));
  EXPECT_EQ(errno, ENOTDIR);
  EXPECT_THAT(Names(), ElementsAre("file"));
}

TEST_F(UnfinishedFolderTest, IsMarkedAnewWhenAnotherRunTookTheMarkForALeftover) {
  marks_to_lose = 2;
  UnfinishedFolder folder;
  ASSERT_TRUE(folder.Make(parent_));
  EXPECT_EQ(marks_to_lose, 0);
  EXPECT_TRUE(fs::is_directory(folder.Path()));
  EXPECT_EQ(Names().size(), 2U);  // with its mark
}

TEST_F(UnfinishedFolderTest, GetsAnotherNameWhenTheNameIsTaken) {
  mkdir_errors = {EEXIST, EEXIST};
  UnfinishedFolder folder;
  ASSERT_TRUE(folder.Make(parent_));
  EXPECT_TRUE(fs::is_directory(folder.Path()));
  EXPECT_EQ(Names().size(), 2U);
}

TEST_F(UnfinishedFolderTest, IsNotTriedAgainWhereNoFolderCanBe) {
  mkdir_errors = {ENOSPC};
  mkdir_calls = 0;
  UnfinishedFolder folder;
  EXPECT_FALSE(folder.Make(parent_));
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_EQ(mkdir_calls, 1);
  EXPECT_EQ(folder.Path(), "") << "or it would be removed at the end";
  EXPECT_THAT(Names(), IsEmpty());
}

TEST_F(UnfinishedFolderTest, IsGivenUpAfterAHundredNamesThatAreTaken) {
  mkdir_errors.assign(100, EEXIST);
  mkdir_calls = 0;
  UnfinishedFolder folder;
  EXPECT_FALSE(folder.Make(parent_));
  EXPECT_EQ(mkdir_calls, 100);
  EXPECT_EQ(folder.Path(), "");
}

TEST_F(UnfinishedFolderTest, IsNotKeptWhenItsMarkCannotBeMadeVoid) {
  UnfinishedFolder folder;
  ASSERT_TRUE(folder.Make(parent_));
  ASSERT_EQ(mount(parent_.c_str(), parent_.c_str(), "", MS_BIND, nullptr), 0);
  ASSERT_EQ(mount("", parent_.c_str(), "", MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr), 0);
  EXPECT_FALSE(folder.Keep());
  EXPECT_EQ(umount2(parent_.c_str(), MNT_DETACH), 0);
  EXPECT_TRUE(folder.Keep());
}

TEST_F(UnfinishedFolderTest, LeftoverOfAKilledRunGoes) {
  ASSERT_FALSE(FolderOfKilledRun("file").empty());
  RemoveUnfinished(parent_);
  EXPECT_THAT(Names(), IsEmpty());
}

TEST_F(UnfinishedFolderTest, KeptFolderOfAKilledRunStays) {
  const std::string folder = FolderOfKilledRun("file", true);
  RemoveUnfinished(parent_);
  EXPECT_THAT(Names(), ElementsAre(fs::path(folder).filename()));
}

TEST_F(UnfinishedFolderTest, FolderThatHadBecomeCompleteLosesItsMarkAlone) {
  const std::string folder = FolderOfKilledRun("last");
  RemoveUnfinished(parent_, "last");
  EXPECT_THAT(Names(), ElementsAre(fs::path(folder).filename()));
  EXPECT_TRUE(fs::exists(folder + "/last"));
}

TEST_F(UnfinishedFolderTest, FolderOfALivingProcessStays) {
  UnfinishedFolder folder;
  ASSERT_TRUE(folder.Make(parent_));
  WriteInto(folder.Path(), "file");
  RemoveUnfinished(parent_);
  EXPECT_TRUE(fs::exists(folder.Path() + "/file"));
  EXPECT_EQ(Names().size(), 2U);
}

TEST_F(UnfinishedFolderTest, FolderThatIsLeftMarkedStaysUntilTheProcessEnds) {
  const pid_t run = fork();
  if (run == 0) {
    bool made = false;
    {
      UnfinishedFolder folder;
      made = folder.Make(parent_);
      folder.LeaveMarked();
    }
    RemoveUnfinished(parent_);
    _exit(made && Names().size() == 2 ? 0 : 1);
  }
  int status = -1;
  waitpid(run, &status, 0);
  EXPECT_EQ(status, 0);
  RemoveUnfinished(parent_);
  EXPECT_THAT(Names(), IsEmpty());
}

TEST_F(UnfinishedFolderTest, FolderThatWasLeftMarkedCanBeKept) {
  const std::string folder = FolderOfKilledRun("file");
  EXPECT_TRUE(KeepUnfinished(folder));
  EXPECT_TRUE(KeepUnfinished(folder));
  RemoveUnfinished(parent_);
  EXPECT_THAT(Names(), ElementsAre(fs::path(folder).filename()));
}

TEST_F(UnfinishedFolderTest, MarkThatCannotBeRemovedIsMadeVoid) {
  const std::string folder = FolderOfKilledRun("file");
  const std::string mark = parent_ + "/." + fs::path(folder).filename().string() + ".unfinished";
  ASSERT_EQ(mount(mark.c_str(), mark.c_str(), "", MS_BIND, nullptr), 0);
  EXPECT_TRUE(KeepUnfinished(folder));
  RemoveUnfinished(parent_);
  EXPECT_TRUE(fs::exists(folder + "/file"));
  ASSERT_EQ(umount2(mark.c_str(), MNT_DETACH), 0);
  RemoveUnfinished(parent_);
  EXPECT_THAT(Names(), ElementsAre(fs::path(folder).filename()));
}

TEST_F(UnfinishedFolderTest, OtherNamesAreLeftAlone) {
  const std::vector<std::string> names = {".abcdef", ".abcdefg.unfinished", ".unfinished",
                                          "abcdef.unfinished", "xabcdef.unfinished"};
  fs::create_directory(parent_ + "/abcdef");
  for (const std::string& name : names) WriteInto(parent_, name);
  RemoveUnfinished(parent_);
  EXPECT_EQ(Names().size(), names.size() + 1);
}

TEST_F(UnfinishedFolderTest, FolderThatIsMarkedLaterGoesAsWell) {
  const std::string mark = parent_ + "/.abcdef.unfinished";
  fs::create_directory(parent_ + "/abcdef");
  MarkUnfinished(parent_ + "/abcdef");
  EXPECT_EQ(fs::file_size(mark), 0U);
  EXPECT_EQ(ModeOf(mark), 0600U);
  RemoveUnfinished(parent_);
  EXPECT_THAT(Names(), IsEmpty());
}

TEST_F(UnfinishedFolderTest, MarkIsMadeThroughNoLink) {
  fs::create_symlink(parent_ + "/elsewhere", parent_ + "/.abcdef.unfinished");
  MarkUnfinished(parent_ + "/abcdef");
  EXPECT_FALSE(fs::exists(parent_ + "/elsewhere"));
}

TEST_F(UnfinishedFolderTest, LinkInTheMarksPlaceIsNone) {
  fs::create_directory(parent_ + "/abcdef");
  std::ofstream(parent_ + "/empty").close();
  fs::create_symlink(parent_ + "/empty", parent_ + "/.abcdef.unfinished");
  RemoveUnfinished(parent_);
  EXPECT_TRUE(fs::exists(parent_ + "/abcdef"));
}

TEST_F(UnfinishedFolderTest, LeftoverThatCannotBeRemovedKeepsItsMarkAndIsLogged) {
  SyslogCapture syslog;
  fs::create_directory(parent_ + "/abcdef");
  std::ofstream(parent_ + "/.abcdef.unfinished").close();
  ASSERT_EQ(mount("tmpfs", (parent_ + "/abcdef").c_str(), "tmpfs", 0, nullptr), 0);
  RemoveUnfinished(parent_);
  umount((parent_ + "/abcdef").c_str());
  EXPECT_TRUE(fs::exists(parent_ + "/.abcdef.unfinished"));
  EXPECT_THAT(syslog.Texts(), ElementsAre("utils:# Failed to remove " + parent_ + "/abcdef [" +
                                          std::to_string(EBUSY) + "]"));
}

TEST_F(UnfinishedFolderTest, LeavesErrnoToTheFailureThatItIsTakenBackFor) {
  SyslogCapture syslog;
  std::string busy;
  {
    UnfinishedFolder folder;
    ASSERT_TRUE(folder.Make(parent_));
    busy = folder.Path();
    ASSERT_EQ(mount("tmpfs", busy.c_str(), "tmpfs", 0, nullptr), 0);
    errno = EDOM;
  }
  EXPECT_EQ(errno, EDOM);
  umount(busy.c_str());
}

TEST_F(UnfinishedFolderTest, FolderThatCannotHaveAMarkIsKept) {
  std::ofstream(parent_ + "/file").close();
  EXPECT_TRUE(KeepUnfinished(parent_ + "/file/abcdef"));
  EXPECT_TRUE(KeepUnfinished(parent_ + "/" + std::string(250, 'x')));
}

TEST_F(UnfinishedFolderTest, LinkInTheFoldersPlaceIsNotFollowed) {
  const std::string folder = FolderOfKilledRun("file");
  fs::remove_all(folder);
  fs::create_directory(parent_ + "/other");
  WriteInto(parent_ + "/other", "file");
  fs::create_directory_symlink(parent_ + "/other", folder);
  RemoveUnfinished(parent_);
  EXPECT_THAT(Names(), ElementsAre("other"));
  EXPECT_TRUE(fs::exists(parent_ + "/other/file"));
}

TEST_F(UnfinishedFolderTest, ParentThatIsNotThereIsTold) {
  UnfinishedFolder folder;
  EXPECT_FALSE(folder.Make(parent_ + "/nowhere"));
  EXPECT_EQ(errno, ENOENT);
  RemoveUnfinished(parent_ + "/nowhere");
}

}  // namespace
}  // namespace kova::test
