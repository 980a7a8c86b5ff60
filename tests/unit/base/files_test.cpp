#include "base/files.h"

#include <glob.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <utility>

#include "base/sl_error.h"
#include "failing_glob.h"

namespace {

bool fchmod_fails = false;
int fsync_error = 0;
bool only_folders_fail = false;

}  // namespace

extern "C" {
int __real_fchmod(int file, mode_t mode);   // NOLINT
int __wrap_fchmod(int file, mode_t mode) {  // NOLINT
  if (!fchmod_fails) return __real_fchmod(file, mode);
  errno = EPERM;
  return -1;
}

int __real_fsync(int file);   // NOLINT
int __wrap_fsync(int file) {  // NOLINT
  struct stat status {};
  const bool spared = only_folders_fail && fstat(file, &status) == 0 && !S_ISDIR(status.st_mode);
  if (fsync_error == 0 || spared) return __real_fsync(file);
  errno = fsync_error;
  return -1;
}
}

namespace kova {
namespace {

namespace fs = std::filesystem;
using test::forced_glob_result;

class Files : public testing::Test {
 protected:
  Files() {
    fs::remove_all(folder_);
    fs::create_directories(folder_);
  }
  ~Files() override {
    forced_glob_result = 0;
    fchmod_fails = false;
    fsync_error = 0;
    only_folders_fail = false;
  }

  static void Put(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
  }
  static mode_t ModeOf(const std::string& path) {
    struct stat status {};
    stat(path.c_str(), &status);
    return status.st_mode & 07777;
  }
  [[nodiscard]] std::vector<std::string> Names() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder_)) {
      names.push_back(entry.path().filename());
    }
    return names;
  }

  std::string folder_ = "/tmp/base_files_test";
  std::string path_ = folder_ + "/file";
};

// The error of writing, as "CODE FILE: MESSAGE"; empty when it went well.
std::string WriteError(const std::string& path, const std::string& content, mode_t mode) {
  try {
    WriteTextFile(path, content, mode);
    return {};
  } catch (const SLError& error) {
    return std::to_string(error.code) + " " + error.file + ": " + error.message;
  }
}

TEST_F(Files, ReadTextFileReadsEveryByte) {
  const std::string content("line\r\n\0\xff no line end", 19);
  Put(path_, content);
  EXPECT_EQ(ReadTextFile(path_), content);
  const std::string large(5 << 20, 'x');
  Put(path_, large);
  EXPECT_EQ(ReadTextFile(path_), large);
}

TEST_F(Files, ReadTextFileIsEmptyForWhatCannotBeOpened) {
  EXPECT_EQ(ReadTextFile(folder_ + "/none"), "");
  EXPECT_EQ(ReadTextFile(folder_), "");
  EXPECT_EQ(ReadTextFile(""), "");
}

TEST_F(Files, ListByPatternAppendsMatchesInOrderAndMarksFolders) {
  Put(folder_ + "/b", "");
  Put(folder_ + "/a", "");
  Put(folder_ + "/.hidden", "");
  fs::create_directory(folder_ + "/c");
  std::vector<std::string> matches = {"before"};
  EXPECT_TRUE(ListByPattern(folder_ + "/*", matches));
  EXPECT_EQ(matches,
            (std::vector<std::string>{"before", folder_ + "/a", folder_ + "/b", folder_ + "/c/"}));
}

TEST_F(Files, ListByPatternFindsNothing) {
  std::vector<std::string> matches = {"before"};
  EXPECT_TRUE(ListByPattern(folder_ + "/none*", matches));
  EXPECT_TRUE(ListByPattern("/no/such/folder/*", matches));
  EXPECT_EQ(matches, std::vector<std::string>{"before"});
}

TEST_F(Files, ListByPatternReportsOtherFailures) {
  Put(folder_ + "/a", "");
  for (const int failure : {GLOB_NOSPACE, GLOB_ABORTED}) {
    forced_glob_result = failure;
    std::vector<std::string> matches;
    EXPECT_FALSE(ListByPattern(folder_ + "/*", matches));
    EXPECT_TRUE(matches.empty());
  }
}

TEST_F(Files, MakeFolderMakesWhatIsNotThere) {
  const std::string path = folder_ + "/made";
  EXPECT_TRUE(MakeFolder(path, 0711));
  EXPECT_EQ(fs::status(path).permissions(), fs::perms(0711));
  EXPECT_TRUE(MakeFolder(path, 0700)) << "it is there";
  EXPECT_EQ(fs::status(path).permissions(), fs::perms(0711));
}

TEST_F(Files, MakeFolderSaysWhenItCannot) {
  EXPECT_FALSE(MakeFolder(folder_ + "/no/parent", 0700));
  EXPECT_FALSE(MakeFolder("/proc/made", 0700));
}

TEST_F(Files, WriteTextFileGivesExactlyTheMode) {
  for (const mode_t mask : {mode_t{0}, mode_t{022}, mode_t{0777}}) {
    const mode_t before = umask(mask);
    WriteTextFile(path_, "content", 0600);
    EXPECT_EQ(ModeOf(path_), 0600U);
    WriteTextFile(path_, "content", 0400);
    EXPECT_EQ(ModeOf(path_), 0400U);
    WriteTextFile(path_, "content", 0644);
    EXPECT_EQ(ModeOf(path_), 0644U);
    umask(before);
  }
}

TEST_F(Files, WriteTextFileReplacesTheWholeFile) {
  Put(path_, "a much longer content than the new one");
  WriteTextFile(path_, std::string("new\0", 4), 0600);
  EXPECT_EQ(ReadTextFile(path_), std::string("new\0", 4));
  WriteTextFile(path_, "", 0600);
  EXPECT_EQ(fs::file_size(path_), 0U);
  EXPECT_EQ(Names(), std::vector<std::string>{"file"});
}

TEST_F(Files, WriteTextFileSaysWhenItCannotCreateTheFile) {
  EXPECT_EQ(WriteError(folder_ + "/none/file", "x", 0600), "202 utils: Failed to chmod.");
  fs::create_directory(path_);
  EXPECT_EQ(WriteError(path_, "x", 0600), "202 utils: Failed to chmod.");
  EXPECT_EQ(Names(), std::vector<std::string>{"file"});
}

TEST_F(Files, WriteTextFileSaysWhenItCannotSetTheMode) {
  WriteTextFile(path_, "old", 0600);
  fchmod_fails = true;
  EXPECT_EQ(WriteError(path_, "new", 0400), "202 utils: Failed to chmod.");
  EXPECT_EQ(ReadTextFile(path_), "old");
  EXPECT_EQ(ModeOf(path_), 0600U);
  EXPECT_EQ(Names(), std::vector<std::string>{"file"});
}

TEST_F(Files, WriteTextFileLeavesTheOldFileWhenTheDiskIsFull) {
  ASSERT_EQ(mount("tmpfs", folder_.c_str(), "tmpfs", 0, "size=64k"), 0);
  WriteTextFile(path_, "old", 0600);
  EXPECT_EQ(WriteError(path_, std::string(200000, 'x'), 0600),
            "202 utils: Failed to write " + path_ + ": No space left on device");
  EXPECT_EQ(ReadTextFile(path_), "old");
  EXPECT_EQ(Names(), std::vector<std::string>{"file"});
  umount(folder_.c_str());
}

TEST_F(Files, WriteTextFileNamesWhatKeepsDataFromTheDisk) {
  WriteTextFile(path_, "old", 0600);
  const std::string named = "202 utils: Failed to write " + path_ + ": ";
  const std::vector<std::pair<int, std::string>> errors = {
      {ENOSPC, named + "No space left on device"}, {EDQUOT, named + "Disk quota exceeded"},
      {EIO, named + "Input/output error"},         {EFBIG, named + "File too large"},
      {EPERM, "202 utils: Failed to chmod."},      {EROFS, "202 utils: Failed to chmod."},
  };
  for (const auto& [error, message] : errors) {
    fsync_error = error;
    EXPECT_EQ(WriteError(path_, "new", 0600), message);
    EXPECT_EQ(ReadTextFile(path_), "old");
    EXPECT_EQ(Names(), std::vector<std::string>{"file"});
  }
}

TEST_F(Files, WriteTextFileTellsTheNewFileWhoseFolderIsNotFlushedFromAnOldOne) {
  WriteTextFile(path_, "old", 0600);
  fsync_error = EIO;
  only_folders_fail = true;
  EXPECT_EQ(WriteError(path_, "new", 0600),
            "202 utils: Failed to flush the folder of " + path_ + ": Input/output error");
  EXPECT_EQ(ReadTextFile(path_), "new");
  EXPECT_EQ(Names(), std::vector<std::string>{"file"});
}

}  // namespace
}  // namespace kova
