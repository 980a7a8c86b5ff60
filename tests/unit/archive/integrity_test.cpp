#include "archive/integrity.h"

#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "archive/deploy.h"
#include "archive/noted_move.h"
#include "archive_fixture.h"
#include "test_certificates.h"

namespace kova::cert_archive {
namespace {

using test::ArchiveTest;
using test::Exists;
using test::Folder;
using test::kBadInfo;
using test::kInfo;
using test::kNoInfo;
using test::List;
using test::MatchOf;
using test::Names;
using test::Read;
using test::ReplacedTool;
using test::ServiceObject;
using test::Write;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

constexpr char kRecovering[] = "utils.cpp:# abc is incomplete, start recovering";

class IntegrityTest : public ArchiveTest {
 protected:
  const test::DealtKeys keys_;

  IntegrityTest() { AddHook("notify", "echo \"$@\" >> /usr/kova/notified"); }

  static void ExpectDefaultSet(const std::string& folder) {
    for (const char* name : {"cert.pem", "privkey.pem", "fullchain.pem", "kova-ca-cert.pem",
                             "kova-ca-privkey.pem", "is_default_cert"}) {
      EXPECT_TRUE(Exists(folder + "/" + name)) << name;
    }
    EXPECT_EQ(MatchOf(folder + "/cert.pem", folder + "/privkey.pem"), "yes");
    EXPECT_EQ(Read(folder + "/cert_info"), "{\n   \"is_broken\" : true\n}\n");
  }
  static std::string Notified() {
    return Exists("/usr/kova/notified") ? Read("/usr/kova/notified") : "";
  }
};

TEST_F(IntegrityTest, ACompleteCertificateIsUsable) {
  AddCertificate("abc");
  EXPECT_EQ(TestIntegrity("abc").integrity, Integrity::kUsable);
  EXPECT_TRUE(EnsureUsable("abc"));
  EXPECT_THAT(Names(Folder("abc")), ElementsAre("cert.pem", "fullchain.pem", "privkey.pem"));
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(IntegrityTest, DoesNotLookAtTheServices) {
  Write(kInfo, R"({"abc": {}})");
  AddFolder("abc");
  EXPECT_EQ(TestIntegrity("abc").integrity, Integrity::kUsable);
}

TEST_F(IntegrityTest, NothingIsRecoveredWithoutAnIndex) {
  EXPECT_EQ(TestIntegrity("abc").integrity, Integrity::kUnusable);
  Write(kInfo, "{ broken");
  EXPECT_EQ(TestIntegrity("abc").integrity, Integrity::kUnusable);
  EXPECT_FALSE(Exists(Folder("abc")));
  EXPECT_THAT(Log(), ElementsAre(kNoInfo, kBadInfo));
}

TEST_F(IntegrityTest, AnIdOutsideTheIndexIsInvalidEvenWithAFolder) {
  AddFolder("abc");
  std::filesystem::remove(Folder("abc/cert.pem"));
  for (const char* info : {"{}", "[]", R"({"abc": 1})", R"({"abc": []})", R"({"abc": null})"}) {
    syslog_.Clear();
    Write(kInfo, info);
    EXPECT_EQ(TestIntegrity("abc").integrity, Integrity::kUnusable) << info;
    EXPECT_THAT(Log(), ElementsAre("utils.cpp:# Invalid cert id: [abc]")) << info;
  }
  EXPECT_FALSE(Exists(Folder("abc/cert.pem")));
}

TEST_F(IntegrityTest, AnIdThatLeadsElsewhereIsInvalid) {
  for (const char* id : {"..", "../mail", "a/b", ".", ""}) {
    syslog_.Clear();
    Json::Value info;
    info[id]["services"] = List({});
    test::WriteInfo(info);
    EXPECT_EQ(TestIntegrity(id).integrity, Integrity::kUnusable) << id;
    EXPECT_THAT(Log(), ElementsAre("utils.cpp:# Invalid cert id: [" + std::string(id) + "]"));
  }
  EXPECT_THAT(Names("/usr/kova/etc/certificate"), ElementsAre("_archive"));
}

TEST_F(IntegrityTest, RefillsAnIncompleteFolder) {
  for (const char* missing : {"cert.pem", "privkey.pem", "fullchain.pem"}) {
    test::RemoveAll(Folder("abc"));
    test::RemoveAll("/usr/kova/notified");
    AddCertificate("abc", List({ServiceObject("mail", "smtp")}));
    const std::string index = Read(kInfo);
    std::filesystem::remove(Folder("abc/") + missing);
    syslog_.Clear();
    EXPECT_EQ(TestIntegrity("abc").integrity, Integrity::kRecovered) << missing;
    ExpectDefaultSet(Folder("abc"));
    EXPECT_EQ(Notified(), "certificate_broken\n");
    EXPECT_EQ(Read(kInfo), index);
    EXPECT_THAT(Log(), ElementsAre("utils.cpp:# Lack of necessary files in cert dir "
                                   "[/usr/kova/etc/certificate/_archive/abc]",
                                   kRecovering));
    EXPECT_EQ(TestIntegrity("abc").integrity, Integrity::kUsable);
  }
}

TEST_F(IntegrityTest, RefillsAFolderThatIsMissing) {
  AddCertificate("abc");
  test::RemoveAll(Folder("abc"));
  EXPECT_TRUE(EnsureUsable("abc"));
  ExpectDefaultSet(Folder("abc"));
  EXPECT_THAT(Log(), ElementsAre("utils.cpp:# Folder not exits "
                                 "[/usr/kova/etc/certificate/_archive/abc]",
                                 kRecovering));
}

TEST_F(IntegrityTest, TreatsALinkedFolderAsMissingAndRefillsItInPlace) {
  AddCertificate("abc");
  std::filesystem::rename(Folder("abc"), "/usr/kova/elsewhere");
  ASSERT_EQ(symlink("/usr/kova/elsewhere", Folder("abc").c_str()), 0);
  EXPECT_TRUE(EnsureUsable("abc"));
  ExpectDefaultSet("/usr/kova/elsewhere");
  EXPECT_THAT(Log(), ElementsAre("utils.cpp:# Path not match, maybe bugs or attacked",
                                 "utils.cpp:# Folder not exits "
                                 "[/usr/kova/etc/certificate/_archive/abc]",
                                 kRecovering));
}

// As a run leaves it that was killed after the last certificate file.
class CutShortRecovery : public IntegrityTest {
 protected:
  CutShortRecovery() {
    AddCertificate("abc");
    std::filesystem::remove(Folder("abc/privkey.pem"));
    EXPECT_TRUE(EnsureUsable("abc"));
    std::filesystem::remove(Folder("abc/cert_info"));
    std::filesystem::remove(Folder("abc/is_default_cert"));
    test::RemoveAll("/usr/kova/notified");
    Write(kNote, "");
    syslog_.Clear();
  }

  const std::string kNote = Folder(".abc.recovery");
};

TEST_F(CutShortRecovery, IsMarkedAndReportedByTheNextTest) {
  const std::string made = Read(Folder("abc/cert.pem"));
  EXPECT_EQ(TestIntegrity("abc").integrity, Integrity::kRecovered);
  ExpectDefaultSet(Folder("abc"));
  EXPECT_EQ(Read(Folder("abc/cert.pem")), made);
  EXPECT_EQ(Notified(), "certificate_broken\n");
  EXPECT_THAT(Names(test::kRoot), ElementsAre("INFO", "abc"));
  EXPECT_EQ(TestIntegrity("abc").integrity, Integrity::kUsable);
}

TEST_F(CutShortRecovery, IsForgottenOnceARenewalHasCome) {
  Write(Folder("abc/fullchain.pem"), Read(Folder("abc/cert.pem")) + "issuer\n", 0400);
  EXPECT_EQ(TestIntegrity("abc").integrity, Integrity::kUsable);
  EXPECT_FALSE(Exists(Folder("abc/cert_info")));
  EXPECT_EQ(Notified(), "");
  EXPECT_THAT(Log(), IsEmpty());
  EXPECT_THAT(Names(test::kRoot), ElementsAre("INFO", "abc"));
}

TEST_F(CutShortRecovery, BeginsAnewWithHalfAChain) {
  const std::string made = Read(Folder("abc/cert.pem"));
  for (const std::string& half : {std::string(), made.substr(0, made.size() / 2)}) {
    Write(kNote, "");
    std::filesystem::remove(Folder("abc/cert_info"));
    Write(Folder("abc/fullchain.pem"), half, 0400);
    EXPECT_EQ(TestIntegrity("abc").integrity, Integrity::kRecovered);
    ExpectDefaultSet(Folder("abc"));
    EXPECT_EQ(Read(Folder("abc/fullchain.pem")), Read(Folder("abc/cert.pem")));
  }
}

TEST_F(IntegrityTest, ACopyOfTheChainThatFailsLeavesNoHalf) {
  AddCertificate("abc");
  std::filesystem::remove(Folder("abc/privkey.pem"));
  {
    const ReplacedTool cp("cp", "echo half > \"$3\"; exit 1");
    EXPECT_EQ(TestIntegrity("abc").integrity, Integrity::kUnusable);
    EXPECT_FALSE(Exists(Folder("abc/fullchain.pem")));
  }
  EXPECT_EQ(TestIntegrity("abc").integrity, Integrity::kRecovered);
  ExpectDefaultSet(Folder("abc"));
}

TEST_F(IntegrityTest, LeavesNoNoteOfARecovery) {
  AddCertificate("abc");
  std::filesystem::remove(Folder("abc/cert.pem"));
  const ReplacedTool openssl(
      "openssl", "ls -A " + std::string(test::kRoot) + " > /usr/kova/seen; exec $REAL \"$@\"");
  EXPECT_EQ(TestIntegrity("abc").integrity, Integrity::kRecovered);
  EXPECT_THAT(Read("/usr/kova/seen"), HasSubstr(".abc.recovery\n"));
  EXPECT_THAT(Names(test::kRoot), ElementsAre("INFO", "abc"));
}

TEST_F(IntegrityTest, FailsWhenNoDefaultSetCanBeMade) {
  AddCertificate("abc");
  std::filesystem::remove(Folder("abc/cert.pem"));
  const ReplacedTool openssl("openssl", "exit 1");
  EXPECT_EQ(TestIntegrity("abc").integrity, Integrity::kUnusable);
  EXPECT_THAT(Log(), Contains("utils.cpp:# Failed to generate default certificate to recover for "
                              "[abc]"));
  EXPECT_FALSE(Exists(Folder("abc/cert_info")));
  EXPECT_EQ(Notified(), "");
}

TEST_F(IntegrityTest, FailsWhenTheMarkerCannotBeWritten) {
  AddCertificate("abc");
  std::filesystem::remove(Folder("abc/cert.pem"));
  test::MakeFolder(Folder("abc/cert_info/occupied"));
  EXPECT_EQ(TestIntegrity("abc").integrity, Integrity::kUnusable);
  EXPECT_THAT(Log(), Contains("utils.cpp:# Failed to write cert info [21]"));
  EXPECT_EQ(Notified(), "");
}

TEST_F(IntegrityTest, OnlyLogsANotificationThatFails) {
  AddCertificate("abc");
  std::filesystem::remove(Folder("abc/cert.pem"));
  AddHook("notify", "exit 1");
  EXPECT_EQ(TestIntegrity("abc").integrity, Integrity::kRecovered);
  EXPECT_THAT(Log(), Contains("utils.cpp:# Failed to send notification for certificate broken"));
}

TEST_F(IntegrityTest, SeveralProcessesRepairACertificateOnce) {
  AddCertificate("abc");
  std::filesystem::remove(Folder("abc/privkey.pem"));
  std::vector<pid_t> tests;
  for (int i = 0; i < 4; ++i) {
    const pid_t test = fork();
    if (test == 0) _exit(EnsureUsable("abc") ? 0 : 1);
    tests.push_back(test);
  }
  for (const pid_t test : tests) {
    int status = -1;
    waitpid(test, &status, 0);
    EXPECT_EQ(status, 0);
  }
  ExpectDefaultSet(Folder("abc"));
  EXPECT_EQ(Notified(), "certificate_broken\n");
}

TEST_F(IntegrityTest, HoldsNoLockWhileItNotifies) {
  AddCertificate("abc", List({ServiceObject("mail", "smtp")}));
  AddHook("service-running", "exit 1");
  AddHook(
      "notify",
      "for lock in /run/kova-certificate/abc /run/kova-mkcert.lock "
      "/run/kova-certificate-deploy.lock /tmp/kovacertificate_info.lock; do\n"
      "  flock -n $lock true || echo $lock >> /usr/kova/held\ndone\necho asked >> /usr/kova/asked");
  std::filesystem::remove(Folder("abc/cert.pem"));
  EXPECT_TRUE(EnsureUsable("abc"));
  EXPECT_EQ(Read("/usr/kova/asked"), "asked\n");
  // A source that is healed in the middle of a move.
  AddCertificate("dst");
  std::filesystem::remove(Folder("abc/cert.pem"));
  EXPECT_TRUE(RegisterAndDeploy("dst", test::Services("abc"), "abc", kActionMove));
  EXPECT_EQ(Read("/usr/kova/asked"), "asked\nasked\n");
  EXPECT_FALSE(Exists("/usr/kova/held")) << Read("/usr/kova/held");
}

TEST_F(IntegrityTest, HealsNothingWithoutTheCertificatesLock) {
  AddCertificate("abc");
  std::filesystem::remove(Folder("abc/cert.pem"));
  Write("/run/kova-certificate", "a file in the way");
  EXPECT_EQ(EnsureUsable("abc").Text(), "cannot lock [/run/kova-certificate/abc]: Not a directory");
  EXPECT_FALSE(Exists(Folder("abc/cert.pem")));
}

TEST_F(IntegrityTest, FinishesANotedMoveFirst) {
  AddCertificate("abc");
  Write(Folder("Fresh1/cert.pem"), "new");
  {
    const CertificateLock lock("abc");
    ASSERT_TRUE(NoteMove(lock, Folder("Fresh1"), {"cert.pem"}));
  }
  EXPECT_TRUE(EnsureUsable("abc"));
  EXPECT_EQ(Read(Folder("abc/cert.pem")), "new");
  EXPECT_TRUE(IsMoveNoted("abc")) << "it is still to be deployed";
}

class EnsureServicesTest : public IntegrityTest {};

TEST_F(EnsureServicesTest, CopiesTheListOut) {
  AddCertificate("abc", List({ServiceObject("mail", "smtp"), Json::Value("odd")}));
  Json::Value services;
  EXPECT_TRUE(EnsureServices("abc", services));
  EXPECT_EQ(services, List({ServiceObject("mail", "smtp"), Json::Value("odd")}));
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(EnsureServicesTest, RepairsTheCertificateFirst) {
  AddCertificate("abc");
  std::filesystem::remove(Folder("abc/fullchain.pem"));
  Json::Value services;
  EXPECT_TRUE(EnsureServices("abc", services));
  ExpectDefaultSet(Folder("abc"));
}

TEST_F(EnsureServicesTest, LogsAListThatIsNone) {
  AddFolder("abc");
  for (const char* info : {R"({"abc": {}})", R"({"abc": {"services": {}}})",
                           R"({"abc": {"services": null}})", R"({"abc": {"services": "x"}})"}) {
    syslog_.Clear();
    Write(kInfo, info);
    Json::Value services = "untouched";
    EXPECT_FALSE(EnsureServices("abc", services)) << info;
    EXPECT_EQ(services, "untouched");
    EXPECT_THAT(Log(), ElementsAre(StartsWith("utils.cpp:# Broken "
                                              "[/usr/kova/etc/certificate/_archive/INFO].[0x")));
  }
}

TEST_F(EnsureServicesTest, LogsAnUnusableCertificate) {
  Json::Value services;
  EXPECT_FALSE(EnsureServices("abc", services));
  EXPECT_THAT(Log(), ElementsAre(kNoInfo, kNoInfo));
}

}  // namespace
}  // namespace kova::cert_archive
