#include "platform/files.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>

#include "faults.h"
#include "host_files.h"
#include "platform/error.h"
#include "scratch.h"

namespace kova::platform {
namespace {

using test::ListFolder;
using test::ModeOf;
using test::ReadFile;
using test::Scratch;
using test::StatusOf;
using test::Umask;
using test::WriteFile;
using testing::ElementsAre;

constexpr char kMark[] = "\xEF\xBB\xBF";

class FilesTest : public testing::Test {
 protected:
  Scratch scratch_;
  std::string path_ = scratch_.Path("file");
};

TEST_F(FilesTest, ExistenceFollowsLinks) {
  EXPECT_FALSE(KLIBCFileExist(path_));
  ASSERT_EQ(symlink("target", path_.c_str()), 0);
  EXPECT_FALSE(KLIBCFileExist(path_));
  WriteFile(scratch_.Path("target"), "");
  EXPECT_TRUE(KLIBCFileExist(path_));
  EXPECT_TRUE(KLIBCFileExist(scratch_.Folder()));
}

TEST_F(FilesTest, OnlyAFolderIsAFolder) {
  EXPECT_TRUE(KLIBCFileCheckDir(scratch_.Folder()));
  EXPECT_FALSE(KLIBCFileCheckDir(path_));
  EXPECT_EQ(KLIBCErrGet(), ENOENT);
  WriteFile(path_, "");
  EXPECT_FALSE(KLIBCFileCheckDir(path_));
  EXPECT_EQ(KLIBCErrGet(), ENOTDIR);
  ASSERT_EQ(symlink(".", scratch_.Path("link").c_str()), 0);
  EXPECT_TRUE(KLIBCFileCheckDir(scratch_.Path("link")));
}

class OpenFile {
 public:
  explicit OpenFile(const std::string& path) : file_(std::fopen(path.c_str(), "r")) {}
  ~OpenFile() { std::fclose(file_); }
  std::FILE* Get() { return file_; }

 private:
  std::FILE* file_;
};

TEST_F(FilesTest, LinesAreReadWithTheirLength) {
  WriteFile(path_, std::string("abc\n\nx\0y\nlast", 13));
  OpenFile file(path_);
  char buffer[16];
  EXPECT_EQ(KLIBCFgets(buffer, sizeof buffer, file.Get()), 4);
  EXPECT_STREQ(buffer, "abc\n");
  EXPECT_EQ(KLIBCFgets(buffer, sizeof buffer, file.Get()), 1);
  EXPECT_STREQ(buffer, "\n");
  EXPECT_EQ(KLIBCFgets(buffer, sizeof buffer, file.Get()), 4);
  EXPECT_EQ(std::string(buffer, 4), std::string("x\0y\n", 4));
  EXPECT_EQ(KLIBCFgets(buffer, sizeof buffer, file.Get()), 4);
  EXPECT_STREQ(buffer, "last");
  EXPECT_EQ(KLIBCFgets(buffer, sizeof buffer, file.Get()), -1);
}

TEST_F(FilesTest, ALongLineIsCutToTheBuffer) {
  WriteFile(path_, "0123456789abcdefghij\n");
  OpenFile file(path_);
  char buffer[16];
  EXPECT_EQ(KLIBCFgets(buffer, sizeof buffer, file.Get()), 15);
  EXPECT_STREQ(buffer, "0123456789abcde");
  EXPECT_EQ(KLIBCFgets(buffer, sizeof buffer, file.Get()), 6);
  EXPECT_STREQ(buffer, "fghij\n");
}

TEST_F(FilesTest, AnEmptyFileHasNoLine) {
  WriteFile(path_, "");
  OpenFile file(path_);
  char buffer[16];
  EXPECT_EQ(KLIBCFgets(buffer, sizeof buffer, file.Get()), -1);
  EXPECT_EQ(KLIBCFgets(buffer, 0, file.Get()), -1);
}

TEST_F(FilesTest, ReadingAFolderLineIsAnError) {
  OpenFile file(scratch_.Folder());
  char buffer[16];
  EXPECT_EQ(KLIBCFgets(buffer, sizeof buffer, file.Get()), -1);
  EXPECT_EQ(KLIBCErrGet(), EISDIR);
}

TEST_F(FilesTest, TouchCreatesAnEmptyFile) {
  const Umask umask(022);
  EXPECT_EQ(KLIBCFileTouch(path_), 0);
  EXPECT_EQ(ReadFile(path_), "");
  EXPECT_EQ(ModeOf(path_), 0644U);
}

TEST_F(FilesTest, TouchOnlyMovesTheTimesOfAFileThatIsThere) {
  WriteFile(path_, "content", 0400);
  const timespec long_ago[2] = {{1000, 0}, {1000, 0}};
  ASSERT_EQ(utimensat(AT_FDCWD, path_.c_str(), long_ago, 0), 0);
  EXPECT_EQ(KLIBCFileTouch(path_), 0);
  EXPECT_EQ(ReadFile(path_), "content");
  EXPECT_EQ(ModeOf(path_), 0400U);
  EXPECT_NEAR(static_cast<double>(StatusOf(path_).st_mtime), static_cast<double>(time(nullptr)), 5);
}

TEST_F(FilesTest, TouchCreatesNothingThroughADanglingLink) {
  ASSERT_EQ(symlink("target", path_.c_str()), 0);
  EXPECT_EQ(KLIBCFileTouch(path_), -1);
  EXPECT_THAT(ListFolder(scratch_.Folder()), ElementsAre("file"));
}

TEST_F(FilesTest, TouchNeedsTheFolder) {
  EXPECT_EQ(KLIBCFileTouch(scratch_.Path("no/file")), -1);
  EXPECT_EQ(KLIBCErrGet(), ENOENT);
}

TEST_F(FilesTest, AByteOrderMarkIsRemovedAndModeAndOwnerKept) {
  WriteFile(path_, std::string(kMark) + "-----BEGIN" + kMark, 0440);
  ASSERT_EQ(chown(path_.c_str(), 12, 34), 0);
  EXPECT_EQ(KLIBCFileUTF8BomStrip(path_), 0);
  EXPECT_EQ(ReadFile(path_), std::string("-----BEGIN") + kMark);
  EXPECT_EQ(ModeOf(path_), 0440U);
  EXPECT_EQ(StatusOf(path_).st_uid, 12U);
  EXPECT_EQ(StatusOf(path_).st_gid, 34U);
  EXPECT_THAT(ListFolder(scratch_.Folder()), ElementsAre("file"));
}

TEST_F(FilesTest, AFileWithoutMarkIsNotRewritten) {
  for (const std::string content : {"", "\xEF\xBB", "text", "x\xEF\xBB\xBF"}) {
    WriteFile(path_, content, 0644);
    const auto before = StatusOf(path_).st_ino;
    EXPECT_EQ(KLIBCFileUTF8BomStrip(path_), 0);
    EXPECT_EQ(ReadFile(path_), content);
    EXPECT_EQ(StatusOf(path_).st_ino, before);
  }
}

TEST_F(FilesTest, TheMarkOfALinkedFileIsRemovedFromTheTarget) {
  WriteFile(scratch_.Path("target"), std::string(kMark) + "x");
  ASSERT_EQ(symlink("target", path_.c_str()), 0);
  EXPECT_EQ(KLIBCFileUTF8BomStrip(path_), 0);
  EXPECT_TRUE(S_ISLNK(StatusOf(path_).st_mode));
  EXPECT_EQ(ReadFile(scratch_.Path("target")), "x");
}

TEST_F(FilesTest, AFailedRewriteLeavesTheMarkedFile) {
  WriteFile(path_, std::string(kMark) + "x");
  test::FaultScope scope;
  scope.faults.failing = "write";
  scope.faults.error = ENOSPC;
  EXPECT_EQ(KLIBCFileUTF8BomStrip(path_), -1);
  EXPECT_EQ(KLIBCErrGet(), ENOSPC);
  EXPECT_EQ(ReadFile(path_), std::string(kMark) + "x");
  EXPECT_EQ(KLIBCFileUTF8BomStrip(scratch_.Path("none")), -1);
  EXPECT_EQ(KLIBCErrGet(), ENOENT);
}

TEST_F(FilesTest, MissingFoldersAreMadeWithTheModeWhateverTheUmask) {
  for (const mode_t mask : {0U, 022U, 0777U}) {
    const Umask umask(mask);
    const std::string top = scratch_.Path("a" + std::to_string(mask));
    EXPECT_EQ(KOVAFSMkdirP(top + "//b/c/", 0, 1, 0, 0, 0751), 0);
    EXPECT_EQ(ModeOf(top), 0751U);
    EXPECT_EQ(ModeOf(top + "/b"), 0751U);
    EXPECT_EQ(ModeOf(top + "/b/c"), 0751U);
  }
}

TEST_F(FilesTest, FoldersThatAreThereKeepTheirMode) {
  ASSERT_EQ(mkdir(path_.c_str(), 0700), 0);
  EXPECT_EQ(KOVAFSMkdirP(path_ + "/b", 0, 1, 0, 0, 0755), 0);
  EXPECT_EQ(KOVAFSMkdirP(path_ + "/b", 0, 1, 0, 0, 0711), 0);
  EXPECT_EQ(ModeOf(path_), 0700U);
  EXPECT_EQ(ModeOf(path_ + "/b"), 0755U);
  EXPECT_EQ(KOVAFSMkdirP("/", 0, 1, 0, 0, 0755), 0);
}

TEST_F(FilesTest, AFileInTheWayIsAFailure) {
  WriteFile(path_, "x");
  EXPECT_LT(KOVAFSMkdirP(path_, 0, 1, 0, 0, 0755), 0);
  EXPECT_EQ(KLIBCErrGet(), ENOTDIR);
  EXPECT_LT(KOVAFSMkdirP(path_ + "/b", 0, 1, 0, 0, 0755), 0);
  EXPECT_LT(KOVAFSMkdirP("", 0, 1, 0, 0, 0755), 0);
  EXPECT_EQ(ReadFile(path_), "x");
}

TEST_F(FilesTest, AWholeFileIsReadAsItIs) {
  const std::string content = std::string(100'000, 'x') + std::string("\0\r\n\xff", 4);
  WriteFile(path_, content);
  std::string read = "before";
  EXPECT_TRUE(ReadWholeFile(path_, read));
  EXPECT_EQ(read, content);
  EXPECT_TRUE(ReadWholeFile("/proc/self/status", read));  // whose size is said to be 0
  EXPECT_THAT(read, testing::HasSubstr("Pid:"));
}

TEST_F(FilesTest, WhatIsNoFileIsNotRead) {
  std::string read = "before";
  EXPECT_FALSE(ReadWholeFile(path_, read));
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(read, "");
  EXPECT_FALSE(ReadWholeFile(scratch_.Folder(), read));
  EXPECT_EQ(errno, EISDIR);
  EXPECT_EQ(KLIBCErrGet(), EISDIR);
}

TEST_F(FilesTest, APipeInTheFilesPlaceDoesNotBlock) {
  ASSERT_EQ(mkfifo(path_.c_str(), 0644), 0);
  std::string read;
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(ReadWholeFile(path_, read));
  EXPECT_EQ(errno, EINVAL);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
}

TEST_F(FilesTest, AStreamOpensOnlyWhatCannotBlock) {
  WriteFile(path_, "x\n");
  const FilePtr stream = OpenToRead(path_);
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(fgetc(stream.get()), 'x');
  EXPECT_NE(fcntl(fileno(stream.get()), F_GETFD) & FD_CLOEXEC, 0);
  EXPECT_NE(OpenToRead("/proc/self/status"), nullptr);
  EXPECT_NE(OpenToRead(scratch_.Folder()), nullptr);  // as fopen(3) has it
  EXPECT_EQ(OpenToRead(scratch_.Path("none")), nullptr);
  EXPECT_EQ(errno, ENOENT);
  ASSERT_EQ(mkfifo(scratch_.Path("pipe").c_str(), 0644), 0);
  for (const std::string& path : {scratch_.Path("pipe"), std::string("/dev/null")}) {
    EXPECT_EQ(OpenToRead(path), nullptr) << path;
    EXPECT_EQ(errno, EINVAL) << path;
  }
}

}  // namespace
}  // namespace kova::platform
