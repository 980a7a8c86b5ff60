// Every state that a killed move can leave, and what is made of it.
#include <sys/mount.h>
#include <unistd.h>

#include <filesystem>

#include "archive/paths.h"
#include "archive/utils.h"
#include "archive_fixture.h"
#include "platform/clock.h"

namespace kova::cert_archive {
namespace {

using test::ArchiveTest;
using test::MakeFolder;
using test::Names;
using test::Read;
using test::Write;
using testing::ElementsAre;
using testing::IsEmpty;

class InterruptedMoveTest : public ArchiveTest {
 protected:
  InterruptedMoveTest() {
    old_ = platform::SetSleeper([this](std::chrono::milliseconds time) { slept_ += time; });
  }
  ~InterruptedMoveTest() override { platform::SetSleeper(old_); }

  static void Set(const std::string& folder, const std::string& version, bool chain = true) {
    for (const char* name : {"cert.pem", "privkey.pem", "fullchain.pem"}) {
      Write(folder + "/" + name, version + name);
    }
    if (chain) Write(folder + "/chain.pem", version + "chain");
  }

  // Nothing was changed in that folder for an hour.
  static void Age(const std::string& folder) {
    std::filesystem::last_write_time(
        folder, std::filesystem::file_time_type::clock::now() - std::chrono::hours(1));
  }

  // As the next run finds it.
  void Finish() {
    test::NoteReplacement(d_);
    FinishInterruptedMove();
    EXPECT_FALSE(test::Exists(kServiceMoveNote));
  }

  const std::string s_ = "/usr/kova/d/D.temp";
  const std::string d_ = "/usr/kova/d/D";
  const std::string b_ = "/usr/kova/d/D.bak";
  std::chrono::milliseconds slept_{0};
  platform::Sleeper old_;
};

TEST_F(InterruptedMoveTest, LeavesAnOrdinaryFolderAlone) {
  Set(d_, "old");
  FinishInterruptedMove();
  EXPECT_THAT(Names("/usr/kova/d"), ElementsAre("D"));
  EXPECT_EQ(slept_, std::chrono::seconds(0));
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(InterruptedMoveTest, LeavesTheFolderWhileItsBackupWasBeingMade) {
  Set(d_, "old");
  Write(b_ + "/cert.pem", "oldcert.pem");
  Finish();
  EXPECT_EQ(Names(d_).size(), 4U);
  // A backup that is complete changes nothing about that.
  Set(b_, "old");
  Finish();
  EXPECT_EQ(Names(d_).size(), 4U);
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(InterruptedMoveTest, PutsTheBackupBackWhenTheFolderIsGone) {
  Set(b_, "old");
  Set(s_, "new");
  Finish();
  EXPECT_THAT(Names("/usr/kova/d"), ElementsAre("D", "D.temp"));
  EXPECT_EQ(Read(d_ + "/privkey.pem"), "oldprivkey.pem");
  EXPECT_THAT(Log(),
              ElementsAre("utils.cpp:# /usr/kova/d/D is put back after an interrupted move"));
}

TEST_F(InterruptedMoveTest, PutsTheBackupBackWhenTheFolderIsEmptyOrPartlyRemoved) {
  for (const int left : {0, 1, 2, 3}) {
    Set(b_, "old");
    test::RemoveAll(d_);
    MakeFolder(d_);
    const char* names[] = {"privkey.pem", "fullchain.pem", "cert.pem"};
    for (int i = 0; i < left; ++i) Write(d_ + "/" + names[i], std::string("old") + names[i]);
    Finish();
    EXPECT_THAT(Names("/usr/kova/d"), ElementsAre("D")) << left;
    EXPECT_EQ(Names(d_).size(), 4U) << left;
  }
}

TEST_F(InterruptedMoveTest, KeepsANewFolderAndRemovesALeftoverBackup) {
  Set(b_, "old");
  Set(d_, "new", /*chain=*/false);
  Finish();
  EXPECT_EQ(Read(d_ + "/cert.pem"), "newcert.pem");
  EXPECT_THAT(Names("/usr/kova/d"), ElementsAre("D"));
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(InterruptedMoveTest, AnEntryOfAnotherKindIsNoneOfTheBackup) {
  Set(b_, "old");
  MakeFolder(d_ + "/cert.pem");
  Write(d_ + "/privkey.pem", "oldprivkey.pem");
  Finish();
  EXPECT_THAT(Names(d_), ElementsAre("cert.pem", "privkey.pem"));
}

TEST_F(InterruptedMoveTest, WhatIsNoFileIsAlikeWhenItIsOfOneKind) {
  Set(b_, "old");
  for (const std::string& folder : {b_, d_}) {
    MakeFolder(folder + "/folder");
    ASSERT_EQ(symlink(("/usr/kova/of" + folder).c_str(), (folder + "/link").c_str()), 0);
    Write("/usr/kova/of" + folder, folder);
  }
  Finish();
  EXPECT_EQ(Read(d_ + "/cert.pem"), "oldcert.pem");
  EXPECT_THAT(Names("/usr/kova/d"), ElementsAre("D"));
}

TEST_F(InterruptedMoveTest, ABackupThatCannotBePutBackIsTriedAgain) {
  Set(b_, "old");
  ASSERT_EQ(mount(b_.c_str(), b_.c_str(), "", MS_BIND, nullptr), 0);
  test::NoteReplacement(d_);
  FinishInterruptedMove();
  EXPECT_EQ(umount2(b_.c_str(), MNT_DETACH), 0);
  EXPECT_THAT(Log(), ElementsAre("utils.cpp:# Failed to move /usr/kova/d/D.bak to /usr/kova/d/D "
                                 "[16]"));
  EXPECT_TRUE(test::Exists(kServiceMoveNote));
  FinishInterruptedMove();
  EXPECT_EQ(Read(d_ + "/cert.pem"), "oldcert.pem");
  EXPECT_FALSE(test::Exists(kServiceMoveNote));
}

TEST_F(InterruptedMoveTest, DoesNotPutBackAnIncompleteBackup) {
  Write(b_ + "/cert.pem", "old");
  Finish();
  EXPECT_FALSE(test::Exists(d_));
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(InterruptedMoveTest, TouchesNothingThatNoNoteTellsOf) {
  Set(b_, "of a service that bears this name");
  FinishInterruptedMove();
  EXPECT_THAT(Names("/usr/kova/d"), ElementsAre("D.bak"));
  for (const char* note : {"", "{", "[]", "{}", R"({"destination": 1})"}) {
    Write(kServiceMoveNote, note);
    FinishInterruptedMove();
    EXPECT_FALSE(test::Exists(kServiceMoveNote)) << note;
  }
  EXPECT_THAT(Names("/usr/kova/d"), ElementsAre("D.bak"));
  EXPECT_EQ(slept_, std::chrono::seconds(0));
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(InterruptedMoveTest, AReplacementIsNotedWhileItLasts) {
  Set(s_, "new");
  Set(d_, "old");
  const test::ReplacedTool rm("rm", "[ -e /usr/kova/d/D.bak ] && cat " +
                                        std::string(kServiceMoveNote) +
                                        " > /usr/kova/note; exec $REAL \"$@\"");
  EXPECT_TRUE(ReplaceNoted(s_, d_));
  EXPECT_EQ(Read("/usr/kova/note"), "{\n   \"destination\" : \"/usr/kova/d/D\"\n}\n");
  EXPECT_FALSE(test::Exists(kServiceMoveNote));
  EXPECT_EQ(Read(d_ + "/cert.pem"), "newcert.pem");
}

TEST_F(InterruptedMoveTest, ABackupThatCouldNotBeRemovedIsRemovedLater) {
  Set(s_, "new");
  Set(d_, "old");
  {
    const test::ReplacedTool rm("rm",
                                "[ -e \"$2/cert.pem\" ] && [ $2 = /usr/kova/d/D.bak ] && exit 1\n"
                                "exec $REAL \"$@\"");
    EXPECT_TRUE(ReplaceNoted(s_, d_));
    EXPECT_THAT(Names("/usr/kova/d"), ElementsAre("D", "D.bak"));
    EXPECT_TRUE(test::Exists(kServiceMoveNote));
  }
  FinishInterruptedMove();
  EXPECT_THAT(Names("/usr/kova/d"), ElementsAre("D"));
  EXPECT_EQ(Read(d_ + "/cert.pem"), "newcert.pem");
  EXPECT_FALSE(test::Exists(kServiceMoveNote));
}

TEST_F(InterruptedMoveTest, AFolderIsReplacedAlsoWhenThatCannotBeNoted) {
  Set(s_, "new");
  Set(d_, "old");
  test::MakeFolder(std::string(kServiceMoveNote) + "/occupied");
  EXPECT_TRUE(ReplaceNoted(s_, d_));
  EXPECT_EQ(Read(d_ + "/cert.pem"), "newcert.pem");
}

TEST_F(InterruptedMoveTest, WaitsForToolsOfARunThatWasKilledJustNow) {
  Set(s_, "new");
  Finish();
  EXPECT_EQ(slept_, std::chrono::seconds(1));
}

TEST_F(InterruptedMoveTest, WaitsWhereverToolsMayBeAtWork) {
  const std::vector<std::string> folders = {"/usr/kova/d", s_, b_};
  for (const std::string& fresh : folders) {
    slept_ = {};
    test::RemoveAll("/usr/kova/d");
    Set(s_, "new");
    Set(d_, "old");
    MakeFolder(b_);
    for (const std::string& folder : folders) {
      if (folder != fresh) Age(folder);
    }
    Finish();
    EXPECT_EQ(slept_, std::chrono::seconds(1)) << fresh;
  }
}

TEST_F(InterruptedMoveTest, DoesNotWaitForLongDeadOnes) {
  Set(s_, "new");
  Set(d_, "old");
  for (const char* path : {"/usr/kova/d", "/usr/kova/d/D.temp"}) Age(path);
  Finish();
  EXPECT_EQ(slept_, std::chrono::seconds(0));
}

}  // namespace
}  // namespace kova::cert_archive
