#include "archive/index.h"

#include <dirent.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "archive/paths.h"
#include "archive_fixture.h"
#include "base/json.h"
#include "platform/files.h"

namespace kova::cert_archive {
namespace {

using test::ArchiveTest;
using test::Exists;
using test::kBadInfo;
using test::kInfo;
using test::kNoInfo;
using test::Mode;
using test::Read;
using test::ReadInfo;
using test::Write;
using testing::ElementsAre;
using testing::IsEmpty;

class IndexTest : public ArchiveTest {};

IndexEdit AddMark(Json::Value& info) {
  info["mark"] = true;
  return IndexEdit::kWrite;
}

TEST_F(IndexTest, ReadsAnyJson) {
  Json::Value info;
  Write(kInfo, R"({"abc": {"services": []}})");
  ASSERT_TRUE(ReadIndex(info));
  EXPECT_TRUE(info["abc"]["services"].isArray());
  Write(kInfo, "[1]");
  ASSERT_TRUE(ReadIndex(info));
  EXPECT_TRUE(info.isArray());
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(IndexTest, LogsAMissingIndex) {
  Json::Value info;
  EXPECT_FALSE(ReadIndex(info));
  EXPECT_THAT(Log(), ElementsAre(kNoInfo));
}

TEST_F(IndexTest, LogsAnIndexThatIsNoJson) {
  Json::Value info;
  for (const std::string text : {"", "{", "{\"a\":", "not json"}) {
    syslog_.Clear();
    Write(kInfo, text);
    EXPECT_FALSE(ReadIndex(info)) << text;
    EXPECT_THAT(Log(), ElementsAre(kBadInfo)) << text;
  }
  syslog_.Clear();
  Write(kInfo, std::string(100000, '['));
  EXPECT_FALSE(ReadIndex(info));
  EXPECT_THAT(Log(), ElementsAre(kBadInfo));
}

TEST_F(IndexTest, LogsAnIndexThatIsNoObject) {
  Json::Value info;
  for (const char* text : {"[]", "[{}]"}) {
    syslog_.Clear();
    Write(kInfo, text);
    EXPECT_FALSE(ReadIndexObject(info)) << text;
    EXPECT_THAT(Log(), ElementsAre(kBadInfo)) << text;
  }
}

TEST_F(IndexTest, WritesStyledJsonEndedByALineFeed) {
  Json::Value info;
  info["b"]["services"] = Json::Value(Json::arrayValue);
  info["a"]["desc"] = "x";
  ASSERT_TRUE(WriteIndex(info));
  EXPECT_EQ(Read(kInfo), JsonStyledText(info));
  EXPECT_EQ(Read(kInfo).back(), '\n');
  EXPECT_FALSE(Exists(kIndexStagingPath));
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(IndexTest, KeepsTheModeOfTheIndex) {
  for (const mode_t mode : {0600U, 0644U, 0640U}) {
    Write(kInfo, "{}", mode);
    ASSERT_TRUE(WriteIndex(Json::Value(Json::objectValue)));
    EXPECT_EQ(Mode(kInfo), mode);
  }
  std::filesystem::remove(kInfo);
  ASSERT_TRUE(WriteIndex(Json::Value(Json::objectValue)));
  EXPECT_EQ(Mode(kInfo), 0600U);
}

TEST_F(IndexTest, OverwritesAStagingFileThatWasLeftBehind) {
  Write(kIndexStagingPath, "half a doc", 0644);
  ASSERT_TRUE(WriteIndex(Json::Value(Json::objectValue)));
  EXPECT_EQ(Read(kInfo), "{}\n");
  EXPECT_FALSE(Exists(kIndexStagingPath));
}

TEST_F(IndexTest, DoesNotWriteThroughAPlantedStagingLink) {
  Write("/tmp/victim", "precious");
  ASSERT_EQ(symlink("/tmp/victim", kIndexStagingPath), 0);
  ASSERT_TRUE(WriteIndex(Json::Value(Json::objectValue)));
  EXPECT_EQ(Read("/tmp/victim"), "precious");
}

TEST_F(IndexTest, LeavesTheOldIndexWhenStagingFails) {
  Write(kInfo, "{}");
  test::MakeFolder(std::string(kIndexStagingPath) + "/occupied");
  Json::Value info;
  info["a"] = 1;
  EXPECT_FALSE(WriteIndex(info));
  EXPECT_THAT(Log(), ElementsAre("utils.cpp:# Failed to write [{\"a\":1}] to "
                                 "[/usr/kova/etc/certificate/_archive/INFO.temp]."));
  EXPECT_EQ(Read(kInfo), "{}");
}

TEST_F(IndexTest, LogsARenameThatFails) {
  test::MakeFolder(std::string(kInfo) + "/occupied");
  EXPECT_EQ(WriteIndex(Json::Value(Json::objectValue)).Text(),
            "Failed to move /usr/kova/etc/certificate/_archive/INFO.temp to "
            "/usr/kova/etc/certificate/_archive/INFO: Is a directory");
  EXPECT_THAT(Log(), ElementsAre("utils.cpp:# Failed to move "
                                 "/usr/kova/etc/certificate/_archive/INFO.temp to "
                                 "/usr/kova/etc/certificate/_archive/INFO"));
}

TEST_F(IndexTest, EditCarriesUnknownMembersThrough) {
  Write(kInfo, R"({"abc": {"services": [], "desc": "d", "n": [1, {"x": null}], "f": 0.1},
                   "odd": 7, "uni": "\u00e4\u20ac", "big": 18446744073709551615})");
  Json::Value expected = ReadInfo();
  ASSERT_TRUE(EditIndex(kUpdateTimeout, AddMark));
  expected["mark"] = true;
  EXPECT_EQ(ReadInfo(), expected);
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(IndexTest, EditKeepsModeAndOwnerOfTheIndex) {
  Write(kInfo, "{}", 0640);
  ASSERT_EQ(chown(kInfo, 1234, 4321), 0);
  ASSERT_TRUE(EditIndex(kUpdateTimeout, AddMark));
  struct stat status {};
  ASSERT_EQ(stat(kInfo, &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0640U);
  EXPECT_EQ(status.st_uid, 1234U);
  EXPECT_EQ(status.st_gid, 4321U);
}

TEST_F(IndexTest, EditReadsUnderTheLock) {
  Write(kInfo, "{}");
  int waiting = -1;
  ASSERT_TRUE(EditIndex(kUpdateTimeout, [&](Json::Value&) {
    waiting = open(kIndexLockPath, O_RDONLY | O_CLOEXEC);
    EXPECT_NE(flock(waiting, LOCK_EX | LOCK_NB), 0) << "nobody holds the lock";
    return IndexEdit::kLeave;
  }));
  EXPECT_EQ(flock(waiting, LOCK_EX | LOCK_NB), 0) << "the lock is still held";
  close(waiting);
  EXPECT_STREQ(kIndexLockPath, "/tmp/kovacertificate_info.lock");
}

TEST_F(IndexTest, EditMayLeaveIt) {
  Write(kInfo, "{ }");
  EXPECT_TRUE(EditIndex(kUpdateTimeout, [](Json::Value& info) {
    info["x"] = 1;
    return IndexEdit::kLeave;
  }));
  EXPECT_EQ(Read(kInfo), "{ }");
}

TEST_F(IndexTest, EditFailsOnABrokenIndexWithoutTouchingIt) {
  bool called = false;
  const auto edit = [&](Json::Value&) {
    called = true;
    return IndexEdit::kWrite;
  };
  EXPECT_FALSE(EditIndex(kUpdateTimeout, edit));
  EXPECT_FALSE(Exists(kInfo));
  Write(kInfo, "[]");
  EXPECT_FALSE(EditIndex(kUpdateTimeout, edit));
  EXPECT_FALSE(EditIndex(kUpdateTimeout, edit, MissingIndex::kIsEmpty));
  EXPECT_EQ(Read(kInfo), "[]");
  EXPECT_FALSE(called);
  EXPECT_THAT(Log(), ElementsAre(kNoInfo, kBadInfo, kBadInfo));
}

TEST_F(IndexTest, EditLeavesAnIndexThatARewriteWouldNotKeep) {
  for (const std::string text :
       {"{\"a\xff\": {\"services\": []}}", "{\"a\": {\"desc\": \"\xc3(\"}}",
        "{\"a\": 18446744073709551616}", "{\"a\": [-123456789012345678901234567890]}",
        "{\"a\": -9223372036854775809}", "{\"a\": [1, -18446744073709551615]}",
        "{\"a\\u0000b\": 1}"}) {
    syslog_.Clear();
    Write(kInfo, text);
    EXPECT_EQ(
        EditIndex(kUpdateTimeout, AddMark).Text(),
        "cannot change [/usr/kova/etc/certificate/_archive/INFO]: it would hold what JSON does "
        "not keep (bytes that are no UTF-8, or numbers that are too large)")
        << text;
    EXPECT_EQ(Read(kInfo), text);
    EXPECT_THAT(Log(), ElementsAre("utils.cpp:# [/usr/kova/etc/certificate/_archive/INFO] is not "
                                   "changed: it holds what a rewrite would not keep"));
  }
}

TEST_F(IndexTest, EditKeepsTextsThatLookLikeHugeNumbers) {
  Write(kInfo, R"({"a": "18446744073709551616", "18446744073709551617": "\\\" 1e5", "b": 1.5e300,
                   "c": 0.12345678901234567890123, "d": -9223372036854775808,
                   "e": "1234567890123456789012345678901234567890"})");
  Json::Value expected = ReadInfo();
  ASSERT_TRUE(EditIndex(kUpdateTimeout, AddMark));
  expected["mark"] = true;
  EXPECT_EQ(ReadInfo(), expected);
}

TEST_F(IndexTest, EditCanStartANewIndex) {
  ASSERT_TRUE(EditIndex(kUpdateTimeout, AddMark, MissingIndex::kIsEmpty));
  EXPECT_EQ(Read(kInfo), "{\n   \"mark\" : true\n}\n");
}

TEST_F(IndexTest, ANewIndexIsAnEmptyObject) {
  EXPECT_TRUE(EditIndex(
      kUpdateTimeout,
      [](Json::Value& info) {
        EXPECT_EQ(info, Json::Value(Json::objectValue));
        return IndexEdit::kLeave;
      },
      MissingIndex::kIsEmpty));
  EXPECT_FALSE(Exists(kInfo));
}

TEST_F(IndexTest, AnIndexIsNotMissingBecauseSomethingElseWas) {
  Write(kInfo, R"({"abc": {"services": []}})");
  const IndexLock lock(kUpdateTimeout);
  errno = ENOENT;
  EXPECT_TRUE(EditIndex(lock, AddMark, MissingIndex::kIsEmpty));
  EXPECT_TRUE(ReadInfo().isMember("abc"));
}

TEST_F(IndexTest, EditLogsAFailedWrite) {
  Write(kInfo, "{}");
  test::MakeFolder(std::string(kIndexStagingPath) + "/occupied");
  EXPECT_FALSE(EditIndex(kUpdateTimeout, AddMark));
  EXPECT_THAT(Log(), ElementsAre(testing::HasSubstr("Failed to write [{\"mark\":true}] to ["),
                                 "utils.cpp:# Failed to write "
                                 "[/usr/kova/etc/certificate/_archive/INFO]."));
}

TEST_F(IndexTest, HasTwoTimeouts) {
  EXPECT_EQ(kUpdateTimeout, std::chrono::seconds(10));
  EXPECT_EQ(kRefreshTimeout, std::chrono::seconds(60));
}

TEST_F(IndexTest, GivesUpOnALockThatSomebodyElseKeeps) {
  Write(kInfo, "{}");
  int handle = -1;
  ASSERT_EQ(KLIBCFileLockTimeByFile(kIndexLockPath, 1, 0, &handle), 0);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(EditIndex(std::chrono::seconds(1), AddMark).Text(),
            "cannot lock [/tmp/kovacertificate_info.lock]: Connection timed out");
  const auto waited = std::chrono::steady_clock::now() - start;
  EXPECT_GE(waited, std::chrono::milliseconds(990));
  EXPECT_LE(waited, std::chrono::seconds(5));
  EXPECT_EQ(Read(kInfo), "{}");
  EXPECT_THAT(Log(),
              ElementsAre("utils.cpp:# Lock list file [/tmp/kovacertificate_info.lock] failed"));
  KLIBCFileUnlockByFile(handle);
}

TEST_F(IndexTest, WaitsForALockThatIsReleasedInTime) {
  Write(kInfo, "{}");
  int handle = -1;
  ASSERT_EQ(KLIBCFileLockTimeByFile(kIndexLockPath, 1, 0, &handle), 0);
  const pid_t holder = fork();
  if (holder == 0) {
    usleep(300000);  // shares the lock's open file with its parent
    _exit(0);
  }
  close(handle);
  EXPECT_TRUE(EditIndex(kUpdateTimeout, AddMark));
  EXPECT_TRUE(ReadInfo().isMember("mark"));
  waitpid(holder, nullptr, 0);
}

TEST_F(IndexTest, DoesNotFollowAPlantedLockFile) {
  Write(kInfo, "{}");
  Write("/tmp/victim", "precious", 0644);
  ASSERT_EQ(symlink("/tmp/victim", kIndexLockPath), 0);
  EXPECT_FALSE(EditIndex(kUpdateTimeout, AddMark));
  EXPECT_EQ(Read("/tmp/victim"), "precious");
  EXPECT_EQ(Read(kInfo), "{}");
  EXPECT_THAT(Log(),
              ElementsAre("utils.cpp:# Lock list file [/tmp/kovacertificate_info.lock] failed"));
}

TEST_F(IndexTest, UsesALockFileThatAnotherUserCreated) {
  Write(kInfo, "{}");
  Write(kIndexLockPath, "theirs", 0666);
  ASSERT_EQ(chown(kIndexLockPath, test::kOwnerUid, test::kOwnerGid), 0);
  EXPECT_TRUE(EditIndex(kUpdateTimeout, AddMark));
  EXPECT_EQ(Read(kIndexLockPath), "theirs");
}

void CloseDescriptorOf(const std::string& path) {
  for (const std::string& name : test::Names("/proc/self/fd")) {
    std::error_code error;
    if (std::filesystem::read_symlink("/proc/self/fd/" + name, error) == path) {
      close(std::atoi(name.c_str()));
    }
  }
}

TEST_F(IndexTest, OnlyLogsAFailedRelease) {
  Write(kInfo, "{}");
  EXPECT_TRUE(EditIndex(kUpdateTimeout, [](Json::Value& info) {
    CloseDescriptorOf(kIndexLockPath);
    return AddMark(info);
  }));
  EXPECT_TRUE(ReadInfo().isMember("mark"));
  EXPECT_THAT(Log(), ElementsAre("utils.cpp:# Failed to unlock /tmp/kovacertificate_info.lock"));
}

}  // namespace
}  // namespace kova::cert_archive
