// A move that is noted, and what becomes of it when its run is cut short at any point.
#include "archive/noted_move.h"

#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

#include "archive_fixture.h"
#include "base/unfinished_folder.h"
#include "platform/files.h"

namespace kova::cert_archive {
namespace {

using test::ArchiveTest;
using test::Exists;
using test::Folder;
using test::Names;
using test::Read;
using test::Write;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

const std::vector<std::string>& Files() {
  static const std::vector<std::string> files = {"cert.pem", "chain.pem", "fullchain.pem",
                                                 "privkey.pem", "renew.json"};
  return files;
}

class NotedMoveTest : public ArchiveTest {
 protected:
  NotedMoveTest() {
    test::RemoveAll(kCertificateLockFolder);
    for (const std::string& name : Files()) {
      Write(Folder("abc/") + name, "old " + name, 0400);
      Write(Folder("Fresh1/") + name, "new " + name, 0400);
    }
  }

  static void Note() {
    const CertificateLock lock("abc");
    ASSERT_TRUE(NoteMove(lock, Folder("Fresh1"), Files()));
  }
  static void Move(size_t count) {
    for (size_t i = 0; i < count; ++i) {
      ASSERT_EQ(
          std::rename(Folder("Fresh1/" + Files()[i]).c_str(), Folder("abc/" + Files()[i]).c_str()),
          0);
    }
  }
  static void ExpectNewSet() {
    for (const std::string& name : Files()) EXPECT_EQ(Read(Folder("abc/") + name), "new " + name);
  }
};

TEST_F(NotedMoveTest, AFreshNoteSaysWhatGoesFromWhereToWhere) {
  Note();
  EXPECT_TRUE(IsMoveNoted("abc"));
  struct stat status {};
  ASSERT_EQ(stat(Folder("Fresh1").c_str(), &status), 0);
  EXPECT_EQ(Read(Folder("abc/noted_move")),
            "{\n   \"files\" : [ \"cert.pem\", \"chain.pem\", \"fullchain.pem\", \"privkey.pem\", "
            "\"renew.json\" ],\n   \"from\" : \"/usr/kova/etc/certificate/_archive/Fresh1\",\n"
            "   \"inode\" : \"" +
                std::to_string(status.st_ino) + "\",\n   \"to\" : \"abc\"\n}\n");
  EXPECT_EQ(test::Mode(Folder("abc/noted_move")), 0600U);
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(NotedMoveTest, IsFinishedWhereverItWasCutShort) {
  for (size_t moved = 0; moved <= Files().size(); ++moved) {
    for (const std::string& name : Files()) {
      Write(Folder("abc/") + name, "old " + name);
      Write(Folder("Fresh1/") + name, "new " + name);
    }
    Note();
    Move(moved);
    ASSERT_TRUE(FinishNotedMove("abc")) << moved;
    ExpectNewSet();
    EXPECT_FALSE(Exists(Folder("Fresh1"))) << moved;
    EXPECT_TRUE(IsMoveNoted("abc")) << "nobody has deployed it yet";
    const CertificateLock lock("abc");
    EXPECT_TRUE(FinishNotedMove(lock)) << "a second time";
    EXPECT_TRUE(ForgetMove(lock));
    EXPECT_FALSE(IsMoveNoted("abc"));
    EXPECT_TRUE(ForgetMove(lock)) << "a second time";
  }
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(NotedMoveTest, WithoutANoteNothingIsDoneAndNoLockIsTaken) {
  EXPECT_FALSE(IsMoveNoted("abc"));
  EXPECT_TRUE(FinishNotedMove("abc"));
  EXPECT_FALSE(Exists(kCertificateLockFolder));
  EXPECT_EQ(Read(Folder("abc/cert.pem")), "old cert.pem");
}

TEST_F(NotedMoveTest, AFolderThatOnlyBearsTheNameIsLeftAlone) {
  Note();
  Move(Files().size());
  // Kept, so that its inode is not used again.
  ASSERT_EQ(std::rename(Folder("Fresh1").c_str(), Folder("away").c_str()), 0);
  Write(Folder("Fresh1/cert.pem"), "of another certificate");
  EXPECT_TRUE(FinishNotedMove("abc"));
  ExpectNewSet();
  EXPECT_EQ(Read(Folder("Fresh1/cert.pem")), "of another certificate");
}

TEST_F(NotedMoveTest, AFileThatOnlyBearsTheNameIsLeftAlone) {
  Note();
  test::RemoveAll(Folder("Fresh1"));
  Write(Folder("Fresh1"), "no folder");
  struct stat status {};
  ASSERT_EQ(stat(Folder("Fresh1").c_str(), &status), 0);
  Write(Folder("abc/noted_move"),
        R"({"to": "abc", "from": "/usr/kova/etc/certificate/_archive/Fresh1", "inode": ")" +
            std::to_string(status.st_ino) + R"(", "files": ["cert.pem"]})");
  EXPECT_TRUE(FinishNotedMove("abc"));
  EXPECT_EQ(Read(Folder("Fresh1")), "no folder");
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(NotedMoveTest, AMoveOfNoFilesIsOne) {
  const CertificateLock lock("abc");
  ASSERT_TRUE(NoteMove(lock, Folder("Fresh1"), {}));
  EXPECT_TRUE(FinishNotedMove(lock));
  EXPECT_FALSE(Exists(Folder("Fresh1")));
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(NotedMoveTest, TheMarkOfAnUnfinishedFolderGoesWithIt) {
  test::RemoveAll(Folder("Fresh1"));
  UnfinishedFolder fresh;
  ASSERT_TRUE(fresh.Make(test::kRoot));
  const std::string folder = fresh.Path();
  for (const std::string& name : Files()) Write(folder + "/" + name, "new " + name);
  fresh.LeaveMarked();
  const CertificateLock lock("abc");
  ASSERT_TRUE(NoteMove(lock, folder, Files()));
  EXPECT_EQ(Names(test::kRoot).size(), 3U);
  EXPECT_TRUE(FinishNotedMove(lock));
  ExpectNewSet();
  EXPECT_THAT(Names(test::kRoot), ElementsAre("abc"));
}

TEST_F(NotedMoveTest, ANoteThatCannotBeTrustedMovesNothing) {
  const std::string outside = R"("from": "/usr/kova/x", "inode": "1", "files": ["cert.pem"])";
  const std::string inside =
      R"("from": "/usr/kova/etc/certificate/_archive/Fresh1", "inode": "1", )";
  for (const std::string& text :
       {std::string("{"), std::string("[]"), std::string("{}"),
        "{\"to\": \"abc\", " + outside + "}",
        "{\"to\": \"other\", " + inside + R"("files": ["cert.pem"]})",
        "{\"to\": \"abc\", " + inside + R"("files": ["../x"]})",
        "{\"to\": \"abc\", " + inside + R"("files": [1]})",
        "{\"to\": \"abc\", " + inside + R"("files": "cert.pem"})",
        std::string(R"({"to": "abc", "from": "/usr/kova/etc/certificate/_archive/abc",)"
                    R"( "inode": "1", "files": []})")}) {
    syslog_.Clear();
    Write(Folder("abc/noted_move"), text);
    EXPECT_TRUE(FinishNotedMove("abc")) << text;
    EXPECT_FALSE(IsMoveNoted("abc")) << text;
    EXPECT_THAT(Log(), ElementsAre("utils.cpp:# [/usr/kova/etc/certificate/_archive/abc/noted_move]"
                                   " is no note of a move of this certificate"))
        << text;
  }
  EXPECT_EQ(Read(Folder("abc/cert.pem")), "old cert.pem");
  EXPECT_EQ(Names(Folder("Fresh1")).size(), 5U);
}

TEST_F(NotedMoveTest, AMoveThatCannotBeFinishedStaysNoted) {
  Note();
  test::RemoveAll(Folder("abc/privkey.pem"));
  Write(Folder("abc/privkey.pem/in the way"), "x");
  const Status finished = FinishNotedMove("abc");
  EXPECT_FALSE(finished);
  EXPECT_EQ(finished.Text(), "Failed to move " + Folder("Fresh1/privkey.pem") + " to " +
                                 Folder("abc/privkey.pem") + ": Is a directory");
  EXPECT_THAT(Log(), ElementsAre("utils.cpp:# Failed to move " + Folder("Fresh1/privkey.pem") +
                                 " to " + Folder("abc/privkey.pem") + " [21]"));
  EXPECT_TRUE(IsMoveNoted("abc"));
  EXPECT_TRUE(Exists(Folder("Fresh1/privkey.pem")));
  test::RemoveAll(Folder("abc/privkey.pem"));
  EXPECT_TRUE(FinishNotedMove("abc"));
  ExpectNewSet();
}

TEST_F(NotedMoveTest, ANoteThatCannotBeRemovedIsTold) {
  Note();
  const CertificateLock lock("abc");
  const std::string note = Folder("abc/noted_move");
  ASSERT_EQ(mount(note.c_str(), note.c_str(), "", MS_BIND, nullptr), 0);
  EXPECT_EQ(ForgetMove(lock).Text(), "Failed to remove " + note + ": Device or resource busy");
  EXPECT_EQ(umount2(note.c_str(), MNT_DETACH), 0);
  EXPECT_THAT(Log(), ElementsAre("utils.cpp:# Failed to remove " + note + " [16]"));
  EXPECT_TRUE(ForgetMove(lock));
  EXPECT_FALSE(IsMoveNoted("abc"));
}

TEST_F(NotedMoveTest, ANextMoveFinishesTheOneBefore) {
  Note();
  Move(2);
  for (const std::string& name : Files()) Write(Folder("Fresh2/") + name, "newer " + name);
  const CertificateLock lock("abc");
  ASSERT_TRUE(NoteMove(lock, Folder("Fresh2"), Files()));
  ExpectNewSet();
  ASSERT_TRUE(FinishNotedMove(lock));
  EXPECT_EQ(Read(Folder("abc/privkey.pem")), "newer privkey.pem");
  EXPECT_THAT(Names(test::kRoot), ElementsAre("abc"));
}

TEST_F(NotedMoveTest, ANoteThatCannotBeWrittenIsAFailure) {
  Write(Folder("abc/noted_move.d"), "");
  test::RemoveAll(Folder("abc"));
  const CertificateLock lock("abc");
  EXPECT_EQ(NoteMove(lock, Folder("Fresh1"), Files()).Text(),
            "Failed to write [" + Folder("abc/noted_move") + "]: No such file or directory");
  EXPECT_THAT(Log(),
              ElementsAre("utils.cpp:# Failed to write [" + Folder("abc/noted_move") + "] [2]"));
}

class CertificateLockTest : public NotedMoveTest {};

TEST_F(CertificateLockTest, IsOneACertificate) {
  const CertificateLock one("abc");
  const CertificateLock other("def");
  EXPECT_TRUE(one.Held());
  EXPECT_TRUE(other.Held());
  EXPECT_EQ(one.Id(), "abc");
  EXPECT_EQ(test::Mode(kCertificateLockFolder), 0700U);
  int handle = -1;
  EXPECT_LT(KLIBCFileLockTimeByFile("/run/kova-certificate/abc", 1, 0, &handle), 0);
}

TEST_F(CertificateLockTest, EndsWithItsProcess) {
  const pid_t child = fork();
  if (child == 0) {
    const CertificateLock lock("abc");
    _exit(lock.Held() ? 0 : 1);
  }
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  const CertificateLock lock("abc");
  EXPECT_TRUE(lock.Held());
}

TEST_F(CertificateLockTest, WithoutItNothingIsMoved) {
  Note();
  test::RemoveAll(kCertificateLockFolder);
  Write(kCertificateLockFolder, "a file in the way");
  EXPECT_EQ(FinishNotedMove("abc").Text(),
            "cannot lock [/run/kova-certificate/abc]: Not a directory");
  const CertificateLock lock("abc");
  EXPECT_FALSE(NoteMove(lock, Folder("Fresh1"), Files()));
  EXPECT_FALSE(ForgetMove(lock));
  EXPECT_EQ(Read(Folder("abc/cert.pem")), "old cert.pem");
  EXPECT_TRUE(IsMoveNoted("abc"));
  EXPECT_THAT(Log(), testing::Each(StartsWith("utils.cpp:# Lock list file "
                                              "[/run/kova-certificate/abc] failed")));
  test::RemoveAll(kCertificateLockFolder);
}

}  // namespace
}  // namespace kova::cert_archive
