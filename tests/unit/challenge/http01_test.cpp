#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <utility>

#include "challenge_fixture.h"

namespace {

int removals_that_fail = 0;
std::function<void()> before_the_next_lock;

}  // namespace

// The linker puts the second in the place of the system's own call, and keeps that as the first.
int RealUnlink(const char* path) asm("__real_unlink");
int FailingUnlink(const char* path) asm("__wrap_unlink");

int FailingUnlink(const char* path) {
  if (removals_that_fail == 0) return RealUnlink(path);
  --removals_that_fail;
  errno = EIO;
  return -1;
}

int RealLock(int file, int operation) asm("__real_flock");
int PrecededLock(int file, int operation) asm("__wrap_flock");

int PrecededLock(int file, int operation) {
  if (before_the_next_lock) std::exchange(before_the_next_lock, {})();
  return RealLock(file, operation);
}

namespace kova::test {
namespace {

constexpr char kToken[] = "evaGxfADs6pSRb2LAv9IZf17Dt3juxGJ-PCt92wr-oA";
constexpr char kContent[] = "evaGxfADs6pSRb2LAv9IZf17Dt3juxGJ-PCt92wr-oA.thumbprint";

std::string TokenFile(const std::string& token = kToken) {
  return std::string(kTokenFolder) + "/" + token;
}

bool Publish(Http01Challenge& challenge, const std::string& token) {
  challenge.Set("a.example", token, token + ".thumbprint");
  return challenge.setup();
}

class Http01 : public ChallengeTest {
 protected:
  ~Http01() override { umask(022); }
};

TEST_F(Http01, PublishesTheKeyAuthorizationAndNothingElse) {
  Http01Challenge challenge;
  challenge.Set("a.example", kToken, kContent);
  ASSERT_TRUE(challenge.setup());
  EXPECT_EQ(ReadFile(TokenFile()), kContent);  // no line feed
  EXPECT_THAT(ListFolder(kTokenFolder), ElementsAre(kToken));
}

TEST_F(Http01, MakesFoldersAndFileReadableForTheWebServer) {
  for (const mode_t mask : {0022U, 0077U, 0777U, 0U}) {
    ResetHost();
    umask(mask);
    Http01Challenge challenge;
    ASSERT_TRUE(Publish(challenge, kToken)) << mask;
    EXPECT_EQ(ModeOf("/var/lib/letsencrypt"), 0755U) << mask;
    EXPECT_EQ(ModeOf("/var/lib/letsencrypt/.well-known"), 0755U) << mask;
    EXPECT_EQ(ModeOf(kTokenFolder), 0755U) << mask;
    EXPECT_EQ(ModeOf(TokenFile()), 0644U) << mask;
  }
}

TEST_F(Http01, LeavesFoldersThatExistAsTheyAre) {
  std::filesystem::create_directories(kTokenFolder);
  chmod("/var/lib/letsencrypt", 0711);
  chmod(kTokenFolder, 0750);
  Http01Challenge challenge;
  ASSERT_TRUE(Publish(challenge, kToken));
  EXPECT_EQ(ModeOf("/var/lib/letsencrypt"), 0711U);
  EXPECT_EQ(ModeOf(kTokenFolder), 0750U);
}

TEST_F(Http01, OverwritesATokenFileThatExists) {
  WriteFile(TokenFile(), std::string(1000, 'x'));
  Http01Challenge challenge;
  ASSERT_TRUE(Publish(challenge, kToken));
  EXPECT_EQ(ReadFile(TokenFile()), kContent);
}

TEST_F(Http01, ReplacesALinkAtTheTokenInsteadOfFollowingIt) {
  WriteFile("/var/lib/precious", "kept");
  std::filesystem::create_directories(kTokenFolder);
  std::filesystem::create_symlink("/var/lib/precious", TokenFile());
  Http01Challenge challenge;
  ASSERT_TRUE(Publish(challenge, kToken));
  EXPECT_EQ(ReadFile(TokenFile()), kContent);
  EXPECT_EQ(ReadFile("/var/lib/precious"), "kept");
}

TEST_F(Http01, RemovesWhatAKilledRunOfTheSameAccountLeft) {
  WriteFile(TokenFile("left"), "left.thumbprint");
  WriteFile(TokenFile("another-accounts"), "another-accounts.another");
  WriteFile(TokenFile("text"), "a text");
  Http01Challenge challenge;
  ASSERT_TRUE(Publish(challenge, kToken));
  EXPECT_THAT(ListFolder(kTokenFolder),
              testing::UnorderedElementsAre(kToken, "another-accounts", "text"));
}

TEST_F(Http01, LeavesAloneWhatIsStillPublished) {
  Http01Challenge earlier;
  ASSERT_TRUE(Publish(earlier, "earlier"));
  Http01Challenge challenge;
  ASSERT_TRUE(Publish(challenge, kToken));
  EXPECT_THAT(ListFolder(kTokenFolder), testing::UnorderedElementsAre(kToken, "earlier"));
  earlier.teardown();
  EXPECT_THAT(ListFolder(kTokenFolder), ElementsAre(kToken));
}

TEST_F(Http01, LeavesLinksAloneWhateverTheyLeadTo) {
  WriteFile("/var/lib/precious", "link.thumbprint");
  std::filesystem::create_directories(kTokenFolder);
  std::filesystem::create_symlink("/var/lib/precious", TokenFile("link"));
  Http01Challenge challenge;
  ASSERT_TRUE(Publish(challenge, kToken));
  EXPECT_THAT(ListFolder(kTokenFolder), testing::UnorderedElementsAre(kToken, "link"));
}

TEST_F(Http01, PublishesAgainWhatAnotherRunTookForALeftover) {
  Http01Challenge challenge;
  before_the_next_lock = [] { std::filesystem::remove(TokenFile()); };
  ASSERT_TRUE(Publish(challenge, kToken));
  EXPECT_FALSE(before_the_next_lock);
  EXPECT_EQ(ReadFile(TokenFile()), kContent);
}

TEST_F(Http01, PublishesFiveTimesAtMost) {
  int locks = 0;
  std::function<void()> remove = [&] {
    ++locks;
    std::filesystem::remove(TokenFile());
    before_the_next_lock = remove;
  };
  before_the_next_lock = remove;
  Http01Challenge challenge;
  EXPECT_TRUE(Publish(challenge, kToken));
  before_the_next_lock = {};
  EXPECT_EQ(locks, 5);
}

// It would hold the file as published for as long as it runs.
TEST_F(Http01, LeavesItsHoldToNoProgramThatItStarts) {
  Http01Challenge challenge;
  ASSERT_TRUE(Publish(challenge, kToken));
  int held = 0;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code gone;
    if (std::filesystem::read_symlink(entry, gone) != TokenFile()) continue;
    ++held;
    EXPECT_EQ(fcntl(std::stoi(entry.path().filename()), F_GETFD), FD_CLOEXEC);
  }
  EXPECT_EQ(held, 1);
}

TEST_F(Http01, RemovesTheFileButNoFolderAtTheEndOfItsLife) {
  {
    Http01Challenge challenge;
    ASSERT_TRUE(Publish(challenge, kToken));
  }
  EXPECT_FALSE(Exists(TokenFile()));
  EXPECT_TRUE(Exists(kTokenFolder));
}

// The next one to come by may not come for months.
TEST_F(Http01, TriesARemovalThatFailsOnceMore) {
  {
    Http01Challenge challenge;
    ASSERT_TRUE(Publish(challenge, kToken));
    removals_that_fail = 1;
  }
  EXPECT_EQ(removals_that_fail, 0);
  EXPECT_THAT(ListFolder(kTokenFolder), IsEmpty());
}

TEST_F(Http01, RemovesOnlyItsOwnFile) {
  WriteFile(TokenFile("other"), "theirs");
  Http01Challenge challenge;
  ASSERT_TRUE(Publish(challenge, kToken));
  challenge.teardown();
  EXPECT_THAT(ListFolder(kTokenFolder), ElementsAre("other"));
}

TEST_F(Http01, RemovesAFileThatIsThereEvenWithoutASetup) {
  WriteFile(TokenFile(), "left behind by an earlier run");
  {
    Http01Challenge challenge;
    challenge.Set("a.example", kToken, kContent);
  }
  EXPECT_FALSE(Exists(TokenFile()));
}

TEST_F(Http01, SaysNothingWhenThereIsNothingToRemove) {
  OutputCapture output(2);
  {
    Http01Challenge challenge;
    challenge.Set("a.example", kToken, kContent);
    challenge.teardown();
  }
  EXPECT_EQ(output.Text(), "");
  EXPECT_THAT(syslog_.Texts(), IsEmpty());
}

TEST_F(Http01, FailsSilentlyWhenAFolderCannotBeMade) {
  for (const char* obstacle : {"/var/lib/letsencrypt", "/var/lib/letsencrypt/.well-known"}) {
    ResetHost();
    WriteFile(obstacle, "a file");
    OutputCapture output(2);
    Http01Challenge challenge;
    EXPECT_FALSE(Publish(challenge, kToken)) << obstacle;
    EXPECT_EQ(output.Text(), "") << obstacle;
  }
  EXPECT_THAT(syslog_.Texts(), IsEmpty());
}

TEST_F(Http01, FailsSilentlyOnAReadOnlyDisk) {
  ASSERT_EQ(mount("tmpfs", "/var/lib", "tmpfs", MS_RDONLY, ""), 0);
  OutputCapture output(2);
  Http01Challenge challenge;
  EXPECT_FALSE(Publish(challenge, kToken));
  EXPECT_EQ(output.Text(), "");
  EXPECT_EQ(umount("/var/lib"), 0);
  EXPECT_THAT(syslog_.Texts(), IsEmpty());
}

TEST_F(Http01, ThrowsWhenTheTokenFileCannotBeWritten) {
  WriteFile(kTokenFolder, "a file where the folder should be");
  Http01Challenge challenge;
  EXPECT_EQ(ErrorOf([&] { Publish(challenge, kToken); }), "202 utils: Failed to chmod.");
}

class HostileToken : public Http01, public ::testing::WithParamInterface<std::string> {};

TEST_P(HostileToken, IsRefusedBeforeAnythingIsTouched) {
  Http01Challenge challenge;
  EXPECT_FALSE(Publish(challenge, GetParam()));
  EXPECT_FALSE(Exists("/var/lib/letsencrypt"));
}

TEST_P(HostileToken, MakesTheTeardownRemoveNothing) {
  WriteFile(TokenFile("x"), "kept");
  WriteFile("/var/lib/letsencrypt/.well-known/x", "kept");
  WriteFile(std::string(kTokenFolder) + "/a/b", "kept");
  WriteFile(TokenFile("%"), "kept");
  WriteFile("/etc/x", "kept");
  {
    Http01Challenge challenge;
    Publish(challenge, GetParam());
    challenge.teardown();
  }
  EXPECT_EQ(ReadFile(TokenFile("x")), "kept");
  EXPECT_EQ(ReadFile("/var/lib/letsencrypt/.well-known/x"), "kept");
  EXPECT_EQ(ReadFile(std::string(kTokenFolder) + "/a/b"), "kept");
  EXPECT_EQ(ReadFile(TokenFile("%")), "kept");
  EXPECT_EQ(ReadFile("/etc/x"), "kept");
}

INSTANTIATE_TEST_SUITE_P(Tokens, HostileToken,
                         ::testing::Values("", ".", "..", "a/b", "../x", "/etc/x",
                                           "../../../../../etc/x", "x/", "x\n", "x y", "x;y", "%",
                                           "%2e%2e", "a.b", "a=", "a+b", "*", "~", "\xc3\xa9",
                                           std::string("x\0", 2), std::string("x\0y", 3)));

TEST_F(Http01, TakesEveryCharacterOfATokensAlphabet) {
  const std::string token = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
  Http01Challenge challenge;
  ASSERT_TRUE(Publish(challenge, token));
  EXPECT_EQ(ReadFile(TokenFile(token)), token + ".thumbprint");
}

TEST_F(Http01, ServesEveryName) {
  Http01Challenge challenge;
  EXPECT_TRUE(challenge.isSupport("a.example"));
  EXPECT_TRUE(challenge.isSupport("box.ddns.example"));
  EXPECT_TRUE(challenge.isSupport("*.a.example"));
  EXPECT_TRUE(challenge.isSupport(""));
  EXPECT_EQ(challenge.type(), "http-01");
}

}  // namespace
}  // namespace kova::test
