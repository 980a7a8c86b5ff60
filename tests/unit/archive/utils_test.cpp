#include "archive/utils.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "archive_fixture.h"

namespace kova::cert_archive {
namespace {

using test::ArchiveTest;
using test::Exists;
using test::MakeFolder;
using test::Mode;
using test::Names;
using test::Read;
using test::ReplacedTool;
using test::Write;
using testing::ElementsAre;
using testing::IsEmpty;

// Works in a folder of its own; S and D are what is moved and where to.
class DirectoryTest : public ArchiveTest {
 protected:
  DirectoryTest() { MakeFolder(kBase); }

  static constexpr char kBase[] = "/usr/kova/d";
  const std::string s_ = std::string(kBase) + "/S";
  const std::string d_ = std::string(kBase) + "/D";
  const std::string b_ = std::string(kBase) + "/D.bak";
};

TEST_F(DirectoryTest, RemovesAFolder) {
  Write(d_ + "/sub/file", "x");
  EXPECT_TRUE(RemoveDirectory(d_));
  EXPECT_FALSE(Exists(d_));
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(DirectoryTest, RemovesNothingButFolders) {
  Write(d_, "a file");
  EXPECT_FALSE(RemoveDirectory(d_));
  EXPECT_FALSE(RemoveDirectory(s_));
  EXPECT_TRUE(Exists(d_));
  EXPECT_THAT(Log(), ElementsAre("utils.cpp:# /usr/kova/d/D is not a valid directory",
                                 "utils.cpp:# /usr/kova/d/S is not a valid directory"));
}

TEST_F(DirectoryTest, LogsARemovalThatFails) {
  MakeFolder(d_);
  const ReplacedTool rm("rm", "exit 1");
  EXPECT_FALSE(RemoveDirectory(d_));
  EXPECT_THAT(Log(), ElementsAre(testing::MatchesRegex(
                         R"(utils\.cpp:# Failed to remove /usr/kova/d/D \[[0-9]+\])")));
}

TEST_F(DirectoryTest, CleansAFolderAndCreatesItsParents) {
  Write(d_ + "/old", "x");
  EXPECT_TRUE(CleanDirectory(d_, 0755));
  EXPECT_THAT(Names(d_), IsEmpty());
  umask(0);
  EXPECT_TRUE(CleanDirectory(s_ + "/a/b", 0755));
  umask(077);
  EXPECT_TRUE(CleanDirectory(s_ + "/c", 0755));
  umask(022);
  EXPECT_EQ(Mode(s_ + "/a"), 0755U);
  EXPECT_EQ(Mode(s_ + "/a/b"), 0755U);
  EXPECT_EQ(Mode(s_ + "/c"), 0755U);
}

TEST_F(DirectoryTest, LogsACleaningThatFails) {
  Write(d_, "a file is in the way");
  EXPECT_FALSE(CleanDirectory(d_, 0755));
  EXPECT_THAT(Log(), ElementsAre("utils.cpp:# Failed to create /usr/kova/d/D"));
  syslog_.Clear();
  MakeFolder(s_);
  const ReplacedTool rm("rm", "exit 1");
  EXPECT_FALSE(CleanDirectory(s_, 0755));
  EXPECT_THAT(Log(), ElementsAre(testing::StartsWith("utils.cpp:# Failed to remove ")));
}

TEST_F(DirectoryTest, MovesToANewPlace) {
  Write(s_ + "/new", "n");
  EXPECT_TRUE(MoveDirectory(s_, d_));
  EXPECT_THAT(Names(kBase), ElementsAre("D"));
  EXPECT_EQ(Read(d_ + "/new"), "n");
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(DirectoryTest, MoveReplacesAFolderWhole) {
  Write(s_ + "/new", "n");
  Write(d_ + "/old", "o");
  Write(b_ + "/older", "x");
  EXPECT_TRUE(MoveDirectory(s_, d_));
  EXPECT_THAT(Names(kBase), ElementsAre("D"));
  EXPECT_THAT(Names(d_), ElementsAre("new"));
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(DirectoryTest, MovesNothingButFolders) {
  Write(d_ + "/old", "o");
  EXPECT_FALSE(MoveDirectory(s_, d_));
  EXPECT_THAT(Log(), ElementsAre("utils.cpp:# /usr/kova/d/S is not a valid directory"));
  EXPECT_THAT(Names(d_), ElementsAre("old"));
}

TEST_F(DirectoryTest, SkipsAMoveOntoItself) {
  Write(d_ + "/old", "o");
  const ReplacedTool rm("rm", "echo rm >> /usr/kova/called");
  EXPECT_TRUE(MoveDirectory(d_, d_));
  EXPECT_FALSE(Exists("/usr/kova/called"));
  EXPECT_THAT(Names(d_), ElementsAre("old"));
  EXPECT_THAT(Log(), ElementsAre("utils.cpp:# skip move directory, due to source equals to "
                                 "destination [/usr/kova/d/D]"));
  EXPECT_EQ(syslog_.Messages().at(0).priority, 7);
}

TEST_F(DirectoryTest, KeepsTheOldFolderInTheBackupWhileItMoves) {
  Write(s_ + "/new", "n");
  Write(d_ + "/old", "o", 0400);
  ASSERT_EQ(chown((d_ + "/old").c_str(), test::kOwnerUid, test::kOwnerGid), 0);
  // The second removal is that of the destination.
  const ReplacedTool rm("rm",
                        "[ \"$2\" = /usr/kova/d/D ] && cp -a /usr/kova/d/D.bak /usr/kova/seen\n"
                        "exec $REAL \"$@\"");
  EXPECT_TRUE(MoveDirectory(s_, d_));
  EXPECT_EQ(Read("/usr/kova/seen/old"), "o");
  EXPECT_EQ(Mode("/usr/kova/seen/old"), 0400U);
  struct stat status {};
  ASSERT_EQ(stat("/usr/kova/seen/old", &status), 0);
  EXPECT_EQ(status.st_uid, test::kOwnerUid);
  EXPECT_EQ(status.st_gid, test::kOwnerGid);
}

TEST_F(DirectoryTest, LeavesTheDestinationWhenTheBackupCannotBeMade) {
  Write(s_ + "/new", "n");
  Write(d_ + "/old", "o");
  const ReplacedTool cp("cp", "mkdir \"$3\"; echo half > \"$3/old\"; exit 1");
  EXPECT_FALSE(MoveDirectory(s_, d_));
  EXPECT_FALSE(test::Exists(b_));
  EXPECT_THAT(Names(d_), ElementsAre("old"));
  EXPECT_THAT(Names(s_), ElementsAre("new"));
  EXPECT_THAT(Log(), ElementsAre(testing::MatchesRegex(
                         R"(utils\.cpp:# Failed to copy /usr/kova/d/D to /usr/kova/d/D\.bak )"
                         R"(\[[0-9]+\])")));
}

TEST_F(DirectoryTest, PutsAStaleBackupInPlaceWhenItCannotBeRemoved) {
  Write(s_ + "/new", "n");
  Write(d_ + "/old", "o");
  Write(b_ + "/stale", "x");
  const ReplacedTool rm("rm", "[ \"$2\" = /usr/kova/d/D.bak ] && exit 1; exec $REAL \"$@\"");
  EXPECT_FALSE(MoveDirectory(s_, d_));
  EXPECT_THAT(Names(kBase), ElementsAre("D", "S"));
  EXPECT_THAT(Names(d_), ElementsAre("stale"));
  EXPECT_THAT(Log(),
              ElementsAre(testing::StartsWith("utils.cpp:# Failed to remove /usr/kova/d/D.bak [")));
}

TEST_F(DirectoryTest, RollsBackWhenTheDestinationCannotBeRemoved) {
  Write(s_ + "/new", "n");
  Write(d_ + "/old", "o");
  const ReplacedTool rm(
      "rm",
      "[ \"$2\" = /usr/kova/d/D ] && [ ! -e /usr/kova/once ] && touch /usr/kova/once && "
      "exit 1; exec $REAL \"$@\"");
  EXPECT_FALSE(MoveDirectory(s_, d_));
  EXPECT_THAT(Names(kBase), ElementsAre("D", "S"));
  EXPECT_THAT(Names(d_), ElementsAre("old"));
  EXPECT_THAT(Log(),
              ElementsAre(testing::StartsWith("utils.cpp:# Failed to remove /usr/kova/d/D [")));
}

TEST_F(DirectoryTest, KeepsTheBackupWhenEvenTheRollBackFails) {
  Write(s_ + "/new", "n");
  Write(d_ + "/old", "o");
  const ReplacedTool rm("rm", "[ \"$2\" = /usr/kova/d/D ] && exit 1; exec $REAL \"$@\"");
  EXPECT_FALSE(MoveDirectory(s_, d_));
  EXPECT_EQ(Read(b_ + "/old"), "o");
  EXPECT_THAT(Log(),
              ElementsAre(testing::StartsWith("utils.cpp:# Failed to remove /usr/kova/d/D ["),
                          testing::StartsWith("utils.cpp:# Failed to remove /usr/kova/d/D [")));
}

TEST_F(DirectoryTest, RollsBackWhenTheRenameFails) {
  Write(s_ + "/new", "n");
  Write(d_ + "/old", "o");
  // The source vanishes at the last moment.
  const ReplacedTool rm("rm",
                        "[ \"$2\" = /usr/kova/d/D ] && $REAL -rf /usr/kova/d/S\n"
                        "exec $REAL \"$@\"");
  EXPECT_FALSE(MoveDirectory(s_, d_));
  EXPECT_THAT(Names(kBase), ElementsAre("D"));
  EXPECT_THAT(Names(d_), ElementsAre("old"));
  EXPECT_THAT(Log(), ElementsAre("utils.cpp:# Failed to move /usr/kova/d/S to /usr/kova/d/D [2]"));
}

TEST_F(DirectoryTest, PutsNothingBackWithoutABackup) {
  Write(s_ + "/new", "n");  // the destination was not there, so neither is its backup
  const ReplacedTool rm("rm",
                        "[ \"$2\" = /usr/kova/d/D ] && $REAL -rf /usr/kova/d/S\n"
                        "exec $REAL \"$@\"");
  EXPECT_FALSE(MoveDirectory(s_, d_));
  EXPECT_THAT(Log(), ElementsAre("utils.cpp:# Failed to move /usr/kova/d/S to /usr/kova/d/D [2]"));
}

TEST_F(DirectoryTest, KeepsTheDestinationWhenABackupThatIsNotThereCannotBeRemoved) {
  Write(s_ + "/new", "n");
  Write(d_ + "/old", "o");
  // As when the tool cannot be started.
  const ReplacedTool rm("rm", "[ \"$2\" = /usr/kova/d/D.bak ] && exit 1; exec $REAL \"$@\"");
  EXPECT_FALSE(MoveDirectory(s_, d_));
  EXPECT_THAT(Names(d_), ElementsAre("old"));
}

TEST_F(DirectoryTest, OnlyLogsABackupThatStays) {
  Write(s_ + "/new", "n");
  Write(d_ + "/old", "o");
  const ReplacedTool rm("rm",
                        "[ \"$2\" = /usr/kova/d/D.bak ] && [ -e /usr/kova/d/D.bak ] && exit 1\n"
                        "exec $REAL \"$@\"");
  EXPECT_TRUE(MoveDirectory(s_, d_));
  EXPECT_THAT(Names(d_), ElementsAre("new"));
  EXPECT_THAT(Log(),
              ElementsAre(testing::StartsWith("utils.cpp:# Failed to remove /usr/kova/d/D.bak [")));
}

TEST_F(DirectoryTest, CopiesAFileForItsOwnerAlone) {
  Write(s_ + "/privkey.pem", "secret", 0644);
  MakeFolder(d_);
  EXPECT_TRUE(CopyOneFile(s_, d_, "privkey.pem", test::kOwnerUid, test::kOwnerGid));
  EXPECT_EQ(Read(d_ + "/privkey.pem"), "secret");
  EXPECT_EQ(Mode(d_ + "/privkey.pem"), 0400U);
  struct stat status {};
  ASSERT_EQ(stat((d_ + "/privkey.pem").c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, test::kOwnerUid);
  EXPECT_EQ(status.st_gid, test::kOwnerGid);
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(DirectoryTest, ACopyIsAtNoInstantOpenToOthers) {
  Write(s_ + "/privkey.pem", "secret", 0666);
  MakeFolder(d_);
  umask(0);
  // What the tool leaves, before anything else is done to it.
  const ReplacedTool cp("cp", "$REAL \"$@\" && stat -c '%a %u' \"$3\" > /usr/kova/seen");
  EXPECT_TRUE(CopyOneFile(s_, d_, "privkey.pem", test::kOwnerUid, test::kOwnerGid));
  EXPECT_EQ(umask(022), 0U) << "the umask was not put back";
  EXPECT_EQ(Read("/usr/kova/seen"), "600 0\n");
}

TEST_F(DirectoryTest, LogsACopyThatFails) {
  MakeFolder(d_);
  Write(s_ + "/cert.pem", "c");
  {
    const ReplacedTool cp("cp", "kill -9 $$");
    EXPECT_FALSE(CopyOneFile(s_, d_, "cert.pem", 0, 0));
  }
  EXPECT_THAT(Log(), ElementsAre("utils.cpp:# Failed to copy "
                                 "[/usr/kova/d/S/cert.pem].[0x0004 spawn.cpp:#]"));
}

TEST_F(DirectoryTest, ATruncatedCopyIsAFailure) {
  MakeFolder(d_);
  Write(s_ + "/cert.pem", "certificate");
  const ReplacedTool cp("cp", "printf cert > \"$3\"; exit 1");
  EXPECT_FALSE(CopyOneFile(s_, d_, "cert.pem", 0, 0));
  EXPECT_THAT(Log(), ElementsAre("utils.cpp:# Failed to copy "
                                 "[/usr/kova/d/S/cert.pem].[0x0005 utils.cpp:#]"));
}

TEST_F(DirectoryTest, ASourceThatIsMissingShowsInTheCopyThatIs) {
  MakeFolder(d_);
  EXPECT_FALSE(CopyOneFile(s_, d_, "cert.pem", 0, 0));
  EXPECT_THAT(Log(), ElementsAre("utils.cpp:# Failed to chmod chown. [/usr/kova/d/D/cert.pem]"));
}

TEST_F(DirectoryTest, LogsACopyThatCannotBeHandedOver) {
  MakeFolder(d_);
  Write(s_ + "/cert.pem", "c");
  const ReplacedTool cp("cp", "exit 0");  // and there is no copy
  EXPECT_FALSE(CopyOneFile(s_, d_, "cert.pem", 0, 0));
  EXPECT_THAT(Log(), ElementsAre("utils.cpp:# Failed to chmod chown. [/usr/kova/d/D/cert.pem]"));
}

}  // namespace
}  // namespace kova::cert_archive
