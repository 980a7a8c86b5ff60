#include "archive/deploy.h"

#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <filesystem>
#include <span>

#include "archive/noted_move.h"
#include "archive/paths.h"
#include "archive/reload_mark.h"
#include "archive/service_files.h"
#include "archive_fixture.h"
#include "base/json.h"
#include "sleep_counter.h"

namespace {

std::vector<std::pair<std::string, int>> lock_waits;  // paths and seconds that were asked for

}  // namespace

// The linker sends the product's calls of KLIBCFileLockTimeByFile here.
#define LOCK_SYMBOL \
  "_Z23KLIBCFileLockTimeByFileRKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEEiiPi"
int RealLock(const std::string&, int, int, int*) __asm__("__real_" LOCK_SYMBOL);
int WrappedLock(const std::string&, int, int, int*) __asm__("__wrap_" LOCK_SYMBOL);
int WrappedLock(const std::string& file, int exclusive, int seconds, int* handle) {
  lock_waits.emplace_back(file, seconds);
  return RealLock(file, exclusive, seconds, handle);
}

namespace kova::cert_archive {
namespace {

using test::ArchiveTest;
using test::Exists;
using test::Folder;
using test::kInfo;
using test::List;
using test::MakeFolder;
using test::Mode;
using test::Names;
using test::Read;
using test::ReplacedTool;
using test::ServiceObject;
using test::Services;
using test::Write;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

constexpr char kSmtp[] = "/usr/kova/etc/certificate/mail/smtp";
constexpr char kMarks[] = "/usr/kova/etc/certificate/_archive/abc/reload_failed";
constexpr char kEndedWith3[] =
    "utils.cpp:# The reload script [/usr/libexec/certificate.d/mail][smtp] ended with status 3.";
constexpr char kLockFile[] = "/tmp/kovacertificate_info.lock";

class DeployTest : public ArchiveTest {
 protected:
  DeployTest() {
    lock_waits.clear();
    AddHook("service-running", "echo \"$@\" >> /usr/kova/running\nexit 1");
    AddHook("service-reload", "echo \"$@\" >> /usr/kova/reloaded\nexit 0");
  }

  // The subscriber's reload script writes its arguments here.
  static void AddReloadScript(const std::string& path, int status = 0) {
    test::WriteProgram(path, "echo \"$0 $*\" >> /usr/kova/scripts\nexit " + std::to_string(status));
  }
  static std::string Scripts() {
    return Exists("/usr/kova/scripts") ? Read("/usr/kova/scripts") : "";
  }

  // Seconds, of every wait so far.
  static std::vector<int> WaitsForTheIndexLock() {
    std::vector<int> seconds;
    for (const auto& [path, wait] : lock_waits) {
      if (path == kLockFile) seconds.push_back(wait);
    }
    return seconds;
  }

  const Json::Value smtp_ = ServiceObject("mail", "smtp");
};

TEST_F(DeployTest, ExportsTheActionTable) {
  const int expected[4][4] = {{0, 0, 0, 1}, {1, 0, 0, 1}, {2, 1, 1, 1}, {3, 0, 1, 0}};
  for (int row = 0; row < 4; ++row) {
    EXPECT_EQ(rgCRTActionInfo[row].action, expected[row][0]);
    EXPECT_EQ(rgCRTActionInfo[row].skip_add, expected[row][1]);
    EXPECT_EQ(rgCRTActionInfo[row].skip_remove, expected[row][2]);
    EXPECT_EQ(rgCRTActionInfo[row].reload, expected[row][3]);
  }
  EXPECT_EQ(sizeof(CRTActionInfo), 16U);
}

TEST_F(DeployTest, KnowsNoActionWhoseRowBearsAnotherNumber) {
  const CRTActionInfo damaged[2] = {{0, 0, 0, 1}, {7, 0, 0, 1}};
  EXPECT_EQ(FindAction(damaged, 0), &damaged[0]);
  EXPECT_EQ(FindAction(damaged, 1), nullptr);
  EXPECT_EQ(FindAction(damaged, 2), nullptr);
  EXPECT_EQ(FindAction(damaged, -1), nullptr);
}

TEST_F(DeployTest, KnowsNoActionBesideTheTable) {
  const CRTActionInfo rows[4] = {{-1, 0, 0, 1}, {0, 0, 0, 1}, {1, 0, 0, 1}, {2, 0, 0, 1}};
  const std::span<const CRTActionInfo> table(&rows[1], 2);
  EXPECT_EQ(FindAction(table, 1), &rows[2]);
  EXPECT_EQ(FindAction(table, 2), nullptr);
  EXPECT_EQ(FindAction(table, -1), nullptr);
}

TEST_F(DeployTest, RefusesAWrongActionBeforeAnyServiceIsTouched) {
  AddCertificate("abc");
  for (const int action : {-1, 4, 1000}) {
    syslog_.Clear();
    EXPECT_FALSE(RegisterAndDeploy("abc", List({smtp_}), "", action));
    EXPECT_THAT(Log(), ElementsAre("utils.cpp:# Wrong rgCRTActionInfo."));
  }
  EXPECT_FALSE(Exists(kSmtp));
  EXPECT_FALSE(Exists("/usr/kova/running"));
}

TEST_F(DeployTest, FailsAtOnceWithoutAUsableCertificate) {
  AddCertificate("abc");
  EXPECT_FALSE(RegisterAndDeploy("other", List({smtp_}), "", 2));
  EXPECT_THAT(Log(), ElementsAre("utils.cpp:# Invalid cert id: [other]"));
  EXPECT_FALSE(RegisterAndDeploy("abc", Json::Value("no list"), "", 2));
  EXPECT_FALSE(RegisterAndDeploy("abc", Json::Value(Json::objectValue), "", 2));
  EXPECT_FALSE(Exists("/usr/kova/running")) << "the relay daemon was asked about";
}

TEST_F(DeployTest, CopiesTheFilesForTheOwner) {
  AddCertificate("abc", List({smtp_}));
  Write(Folder("abc/chain.pem"), "chain", 0400);
  Write(Folder("abc/kova-ca-cert.pem"), "ca", 0644);
  Write(Folder("abc/renew.json"), "{}", 0400);
  Write(Folder("abc/kova-ca-privkey.pem"), "never", 0400);
  EXPECT_TRUE(RegisterAndDeploy("abc", List({smtp_}), "", 2));
  EXPECT_THAT(Names(kSmtp), ElementsAre("cert.pem", "chain.pem", "fullchain.pem",
                                        "kova-ca-cert.pem", "privkey.pem"));
  for (const std::string& name : Names(kSmtp)) {
    const std::string file = std::string(kSmtp) + "/" + name;
    EXPECT_EQ(Read(file), Read(Folder("abc/") + name));
    EXPECT_EQ(Mode(file), 0400U);
    struct stat status {};
    ASSERT_EQ(stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, test::kOwnerUid);
    EXPECT_EQ(status.st_gid, test::kOwnerGid);
  }
  EXPECT_EQ(Mode(kSmtp), 0755U);
  EXPECT_THAT(Names("/usr/kova/etc/certificate/mail"), ElementsAre("smtp"));
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(DeployTest, CopiesInOrderAndOnlyWhatIsThere) {
  AddCertificate("abc");
  Write(Folder("abc/chain.pem"), "chain");
  const ReplacedTool cp("cp",
                        "[ \"$1\" = -f ] && echo \"$3\" >> /usr/kova/copied; exec $REAL \"$@\"");
  EXPECT_TRUE(RegisterAndDeploy("abc", List({smtp_}), "", 2));
  const std::string staging = std::string(kSmtp) + ".temp/";
  EXPECT_EQ(Read("/usr/kova/copied"), staging + "cert.pem\n" + staging + "privkey.pem\n" + staging +
                                          "fullchain.pem\n" + staging + "chain.pem\n");
}

TEST_F(DeployTest, DeploysThreeFilesWithoutAChain) {
  AddCertificate("abc");
  EXPECT_TRUE(RegisterAndDeploy("abc", List({smtp_}), "", 2));
  EXPECT_THAT(Names(kSmtp), ElementsAre("cert.pem", "fullchain.pem", "privkey.pem"));
}

TEST_F(DeployTest, ReplacesTheFolderAsAWhole) {
  AddCertificate("abc");
  Write(std::string(kSmtp) + "/chain.pem", "of the old one");
  Write(std::string(kSmtp) + ".temp/chain.pem", "left by a killed run");
  Write(std::string(kSmtp) + ".bak/chain.pem", "left by a killed run");
  EXPECT_TRUE(RegisterAndDeploy("abc", List({smtp_}), "", 2));
  EXPECT_THAT(Names(kSmtp), ElementsAre("cert.pem", "fullchain.pem", "privkey.pem"));
  EXPECT_THAT(Names("/usr/kova/etc/certificate/mail"), ElementsAre("smtp"));
}

TEST_F(DeployTest, LosesNothingOfAKilledMoveWhenTheNextOneFails) {
  AddCertificate("abc");
  for (const char* name : {"cert.pem", "privkey.pem", "fullchain.pem"}) {
    Write(std::string(kSmtp) + ".bak/" + name, "old");
  }
  test::NoteReplacement(kSmtp);
  const test::SleepCounter sleeps;
  const ReplacedTool cp("cp", "exit 1");
  EXPECT_FALSE(RegisterAndDeploy("abc", List({smtp_}), "", 2));
  EXPECT_EQ(Read(std::string(kSmtp) + "/privkey.pem"), "old");
  EXPECT_THAT(Names(kSmtp), ElementsAre("cert.pem", "fullchain.pem", "privkey.pem"));
}

TEST_F(DeployTest, DeploysPackagesBelowLocal) {
  AddCertificate("abc");
  Json::Value object = smtp_;
  object["isPkg"] = true;
  AddReloadScript("/usr/local/libexec/certificate.d/mail");
  AddReloadScript("/usr/libexec/certificate.d/mail");
  EXPECT_TRUE(RegisterAndDeploy("abc", List({object}), "", 2));
  EXPECT_TRUE(HoldsRequiredFiles("/usr/local/etc/certificate/mail/smtp"));
  EXPECT_FALSE(Exists(kSmtp));
  EXPECT_EQ(Scripts(), "/usr/local/libexec/certificate.d/mail smtp\n");
}

TEST_F(DeployTest, RunsTheReloadScriptWithTheService) {
  AddCertificate("abc");
  AddReloadScript("/usr/libexec/certificate.d/mail");
  EXPECT_TRUE(RegisterAndDeploy(
      "abc", List({smtp_, ServiceObject("mail", "imap and more"), ServiceObject("web", "x")}), "",
      2));
  EXPECT_EQ(Scripts(),
            "/usr/libexec/certificate.d/mail smtp\n"
            "/usr/libexec/certificate.d/mail imap and more\n");
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(DeployTest, LeavesTheScriptsResultToTheScript) {
  AddCertificate("abc");
  AddReloadScript("/usr/libexec/certificate.d/mail", 3);
  EXPECT_TRUE(RegisterAndDeploy("abc", List({smtp_}), "", 2));
  EXPECT_THAT(Log(), ElementsAre(kEndedWith3));
}

TEST_F(DeployTest, MarksAServiceWhoseScriptWasNotContentUntilItIs) {
  const Json::Value imap = ServiceObject("mail", "imap and more");
  AddCertificate("abc");
  AddReloadScript("/usr/libexec/certificate.d/mail", 3);
  EXPECT_TRUE(RegisterAndDeploy("abc", List({smtp_, imap}), "", 2));
  EXPECT_EQ(Read(kMarks), "{\n   \"mail/imap and more\" : 3,\n   \"mail/smtp\" : 3\n}\n");
  EXPECT_EQ(Mode(kMarks), 0600U);
  AddReloadScript("/usr/libexec/certificate.d/mail");
  EXPECT_TRUE(RegisterAndDeploy("abc", List({imap}), "", 2));
  EXPECT_EQ(Read(kMarks), "{\n   \"mail/smtp\" : 3\n}\n");
  EXPECT_TRUE(RegisterAndDeploy("abc", List({smtp_}), "", 2));
  EXPECT_FALSE(Exists(kMarks));
}

TEST_F(DeployTest, AScriptThatIsGoneTakesTheMarkAlong) {
  AddCertificate("abc");
  AddReloadScript("/usr/libexec/certificate.d/mail", 3);
  EXPECT_TRUE(RegisterAndDeploy("abc", List({smtp_}), "", 2));
  test::RemoveAll("/usr/libexec/certificate.d/mail");
  EXPECT_TRUE(RegisterAndDeploy("abc", List({smtp_}), "", 2));
  EXPECT_FALSE(Exists(kMarks));
}

TEST_F(DeployTest, TheLogHasAWarningForAScriptThatWasNotContent) {
  AddCertificate("abc");
  AddReloadScript("/usr/libexec/certificate.d/mail", 3);
  EXPECT_TRUE(RegisterAndDeploy("abc", List({smtp_}), "", 2));
  ASSERT_EQ(syslog_.Messages().size(), 1U);
  EXPECT_EQ(syslog_.Messages()[0].priority, LOG_WARNING);
}

TEST_F(DeployTest, AMarkThatCannotBeWrittenIsLogged) {
  AddCertificate("abc");
  AddReloadScript("/usr/libexec/certificate.d/mail", 3);
  MakeFolder(std::string(kMarks) + "/occupied");
  EXPECT_TRUE(RegisterAndDeploy("abc", List({smtp_}), "", 2));
  EXPECT_THAT(Log(), ElementsAre(kEndedWith3,
                                 "utils.cpp:# Failed to write [" + std::string(kMarks) + "] [21]"));
}

TEST_F(DeployTest, AMarkNeedsTheCertificatesLock) {
  AddCertificate("abc");
  const Service service = ServiceFrom(smtp_);
  NoteReload("abc", service, 0);
  EXPECT_FALSE(Exists("/run/kova-certificate")) << "there is nothing to take away";
  MakeFolder("/run/kova-certificate/abc");  // cannot be locked
  NoteReload("abc", service, 3);
  EXPECT_FALSE(Exists(kMarks));
}

TEST_F(DeployTest, MarksThatCannotBeReadCountAsNone) {
  AddCertificate("abc");
  for (const char* text : {"", "{", "[]", "null", R"({"mail/smtp": "3", "mail/imap": 4.5})"}) {
    Write(kMarks, text);
    EXPECT_EQ(ReloadFailures("abc"), Json::Value(Json::objectValue)) << text;
  }
  AddReloadScript("/usr/libexec/certificate.d/mail", 3);
  EXPECT_TRUE(RegisterAndDeploy("abc", List({smtp_}), "", 2));
  EXPECT_EQ(Read(kMarks), "{\n   \"mail/smtp\" : 3\n}\n");
}

TEST_F(DeployTest, FailsWhenTheScriptCannotBeRun) {
  AddCertificate("abc");
  Write("/usr/libexec/certificate.d/mail", "no program", 0644);
  EXPECT_FALSE(RegisterAndDeploy("abc", List({smtp_}), "", 2));
  EXPECT_TRUE(HoldsRequiredFiles(kSmtp));
  EXPECT_THAT(Log(), ElementsAre("utils.cpp:# Failed to [/usr/libexec/certificate.d/mail][smtp]."
                                 "[0x000D process.cpp:#]",
                                 "utils.cpp:# Failed to reload [mail][smtp]."));
}

TEST_F(DeployTest, AServiceThatFailsDoesNotStopTheOthers) {
  AddCertificate("abc");
  AddHook("service-running", "exit 0");
  AddReloadScript("/usr/libexec/certificate.d/mail");
  Json::Value invalid = smtp_;
  invalid["isPkg"] = "true";
  const Json::Value services =
      List({invalid, Json::Value(7), ServiceObject("mail", "a", "nobody-of-that-name"),
            ServiceObject("mail", "b")});
  EXPECT_FALSE(RegisterAndDeploy("abc", services, "", 2));
  EXPECT_TRUE(HoldsRequiredFiles("/usr/kova/etc/certificate/mail/b"));
  EXPECT_FALSE(Exists("/usr/kova/etc/certificate/mail/a"));
  EXPECT_EQ(Scripts(), "/usr/libexec/certificate.d/mail b\n");
  EXPECT_EQ(Read("/usr/kova/reloaded"), "kovarelayd\n");
  EXPECT_THAT(Log(), ElementsAre("utils.cpp:# service object is error.",
                                 "utils.cpp:# Lack of necesary key. [display_name]",
                                 "utils.cpp:# service object is error.",
                                 "utils.cpp:# Failed to KOVAUserGetUGID [nobody-of-that-name]."
                                 "[0x0002 users.cpp:#]"));
}

TEST_F(DeployTest, NamesThatLeadElsewhereFailBeforeAnythingIsTouched) {
  AddCertificate("abc");
  AddCertificate("def");
  for (const auto& [subscriber, service] : {std::pair{"..", "x"},
                                            {"mail", ".."},
                                            {"mail", "../../../../tmp/x"},
                                            {"a/b", "x"},
                                            {".", "x"},
                                            {"_archive", "def"}}) {
    syslog_.Clear();
    EXPECT_FALSE(RegisterAndDeploy("abc", List({ServiceObject(subscriber, service)}), "", 2));
    EXPECT_THAT(Log(), ElementsAre("utils.cpp:# service object is error."));
  }
  EXPECT_THAT(Names("/usr/kova/etc/certificate"), ElementsAre("_archive"));
  EXPECT_EQ(Read(Folder("def/cert.pem")), "def cert.pem\n");
}

TEST_F(DeployTest, AnOwnerOfNumbersIsLookedUpByNameOnly) {
  AddCertificate("abc");
  EXPECT_FALSE(RegisterAndDeploy("abc", List({ServiceObject("mail", "smtp", "4101")}), "", 2));
}

TEST_F(DeployTest, LogsAFolderThatCannotBeCreated) {
  AddCertificate("abc");
  Write("/usr/kova/etc/certificate/mail", "a file is in the way");
  EXPECT_FALSE(RegisterAndDeploy("abc", List({smtp_}), "", 2));
  EXPECT_THAT(Log(), ElementsAre("utils.cpp:# Failed to create "
                                 "/usr/kova/etc/certificate/mail/smtp",
                                 "utils.cpp:# /usr/kova/etc/certificate/mail/smtp.temp is not a "
                                 "valid directory",
                                 "utils.cpp:# Failed to remove "
                                 "/usr/kova/etc/certificate/mail/smtp.temp",
                                 "utils.cpp:# Failed to set cert [abc] for [mail][smtp]."));
}

TEST_F(DeployTest, LogsAStagingFolderThatCannotBeCleaned) {
  AddCertificate("abc");
  Write(std::string(kSmtp) + ".temp", "a file is in the way");
  EXPECT_FALSE(RegisterAndDeploy("abc", List({smtp_}), "", 2));
  EXPECT_THAT(Log(),
              ElementsAre("utils.cpp:# Failed to create "
                          "/usr/kova/etc/certificate/mail/smtp.temp",
                          "utils.cpp:# Failed to clean "
                          "/usr/kova/etc/certificate/mail/smtp.temp",
                          HasSubstr("is not a valid directory"), HasSubstr("Failed to remove"),
                          "utils.cpp:# Failed to set cert [abc] for [mail][smtp]."));
}

TEST_F(DeployTest, KeepsTheOldFilesWhenACopyFails) {
  AddCertificate("abc");
  Write(std::string(kSmtp) + "/cert.pem", "old");
  const ReplacedTool cp("cp", "case \"$3\" in */fullchain.pem) exit 1;; esac; exec $REAL \"$@\"");
  EXPECT_FALSE(RegisterAndDeploy("abc", List({smtp_}), "", 2));
  EXPECT_THAT(Names(kSmtp), ElementsAre("cert.pem"));
  EXPECT_EQ(Read(std::string(kSmtp) + "/cert.pem"), "old");
  EXPECT_FALSE(Exists(std::string(kSmtp) + ".temp"));
  EXPECT_THAT(Log(), ElementsAre("utils.cpp:# Failed to chmod chown. "
                                 "[/usr/kova/etc/certificate/mail/smtp.temp/fullchain.pem]",
                                 "utils.cpp:# Failed to copy cert files from "
                                 "/usr/kova/etc/certificate/_archive/abc to "
                                 "/usr/kova/etc/certificate/mail/smtp.temp",
                                 "utils.cpp:# Failed to set cert [abc] for [mail][smtp]."));
}

TEST_F(DeployTest, KeepsTheOldFilesWhenTheMoveFails) {
  AddCertificate("abc");
  Write(std::string(kSmtp) + "/cert.pem", "old");
  const ReplacedTool cp("cp", "[ \"$1\" = -arp ] && exit 1; exec $REAL \"$@\"");
  EXPECT_FALSE(RegisterAndDeploy("abc", List({smtp_}), "", 2));
  EXPECT_EQ(Read(std::string(kSmtp) + "/cert.pem"), "old");
  EXPECT_FALSE(Exists(std::string(kSmtp) + ".temp"));
  EXPECT_THAT(Log(), Contains("utils.cpp:# Failed to move "
                              "/usr/kova/etc/certificate/mail/smtp.temp to "
                              "/usr/kova/etc/certificate/mail/smtp"));
}

TEST_F(DeployTest, LogsAnArchiveFolderThatIsGone) {
  uid_t uid = 0;
  EXPECT_FALSE(InstallServiceFiles("gone", ServiceFrom(smtp_), uid, 0));
  EXPECT_THAT(Log(), Contains("utils.cpp:# [/usr/kova/etc/certificate/_archive/gone] doesn't "
                              "exist.[0x0002 files.cpp:#]"));
}

TEST_F(DeployTest, ReloadsTheRelayDaemonOnlyWhenItRuns) {
  AddCertificate("abc");
  EXPECT_TRUE(RegisterAndDeploy("abc", List({smtp_}), "", 2));
  EXPECT_EQ(Read("/usr/kova/running"), "kovarelayd\n");
  EXPECT_FALSE(Exists("/usr/kova/reloaded"));
  AddHook("service-running", "exit 0");
  EXPECT_TRUE(RegisterAndDeploy("abc", List({smtp_}), "", 2));
  EXPECT_TRUE(RegisterAndDeploy("abc", List({}), "", 2));
  EXPECT_EQ(Read("/usr/kova/reloaded"), "kovarelayd\nkovarelayd\n");
}

TEST_F(DeployTest, AFailedRelayReloadFailsTheWhole) {
  AddCertificate("abc");
  AddHook("service-running", "exit 0");
  AddHook("service-reload", "exit 5");
  EXPECT_FALSE(RegisterAndDeploy("abc", List({smtp_}), "", 2));
  EXPECT_TRUE(HoldsRequiredFiles(kSmtp));
  EXPECT_THAT(Log(), Contains("utils.cpp:# Reload kovarelayd failed."));
}

TEST_F(DeployTest, OfTwoFailuresTheFirstIsTold) {
  AddCertificate("abc");
  AddHook("service-running", "exit 0");
  AddHook("service-reload", "exit 5");
  EXPECT_EQ(RegisterAndDeploy("abc", List({smtp_}), "", 2).Text(), "Reload kovarelayd: failed");
  const Status both = RegisterAndDeploy("abc", List({Json::Value(7)}), "", 2);
  EXPECT_EQ(both.Text(), "service object is error.");
  const Json::Value unowned = ServiceObject("mail", "smtp", "nobody-of-that-name");
  EXPECT_EQ(RegisterAndDeploy("abc", List({Json::Value(7), unowned}), "", 2).Text(),
            "service object is error.");
}

TEST_F(DeployTest, AnInterruptedOneCanBeFinishedByItself) {
  Write(std::string(kSmtp) + ".bak/cert.pem", "old");
  for (const char* name : {"privkey.pem", "fullchain.pem", "chain.pem"}) {
    Write(std::string(kSmtp) + ".bak/" + name, "old");
  }
  FinishInterruptedDeployment();  // no note: nothing of ours
  EXPECT_FALSE(Exists(kSmtp));
  EXPECT_FALSE(Exists("/run/kova-certificate-deploy.lock")) << "somebody may hold it for long";
  test::NoteReplacement(kSmtp);
  FinishInterruptedDeployment();
  EXPECT_EQ(Read(std::string(kSmtp) + "/cert.pem"), "old");
  EXPECT_FALSE(Exists(kServiceMoveNote));
}

TEST_F(DeployTest, RedeployNeitherLocksNorChangesTheIndex) {
  AddCertificate("abc", List({smtp_}));
  const std::string before = Read(kInfo);
  Write(kLockFile, "untouched");
  const auto stamp = std::filesystem::last_write_time(kInfo);
  const ReplacedTool rm("rm",
                        "ls -i /proc/$PPID/fd -l | grep -c info.lock >> /usr/kova/locks; "
                        "exec $REAL \"$@\"");
  EXPECT_TRUE(RegisterAndDeploy("abc", List({ServiceObject("mail", "new")}), "", 2));
  EXPECT_EQ(Read(kInfo), before);
  EXPECT_EQ(std::filesystem::last_write_time(kInfo), stamp);
  EXPECT_THAT(Read("/usr/kova/locks"), Not(HasSubstr("1")));
}

TEST_F(DeployTest, RedeployNeedsNoIndexLock) {
  AddCertificate("abc", List({smtp_}));
  MakeFolder(kLockFile);  // cannot be locked
  EXPECT_TRUE(RegisterAndDeploy("abc", List({smtp_}), "", 2));
  EXPECT_THAT(Log(), IsEmpty());
  EXPECT_TRUE(WaitsForTheIndexLock().empty());
}

// Copies and reload scripts may take their time; nobody is to wait for them at the index.
TEST_F(DeployTest, HoldsNoIndexLockWhileItCopiesAndReloads) {
  const std::string probe = "flock -n " + std::string(kLockFile) +
                            " true && echo free >> /usr/kova/probes || echo held >> "
                            "/usr/kova/probes\n";
  test::WriteProgram("/usr/libexec/certificate.d/mail", probe);
  const Json::Value imap = ServiceObject("mail", "imap");
  for (const int action : {0, 1, 2, 3}) {
    test::RemoveAll(kInfo);
    test::RemoveAll("/usr/kova/etc/certificate/mail");
    AddCertificate("src", List({smtp_, imap}));
    AddCertificate("dst");
    const ReplacedTool cp("cp", probe + "exec $REAL \"$@\"");
    EXPECT_TRUE(RegisterAndDeploy("dst", List({smtp_, imap}), "src", action));
    EXPECT_THAT(Read("/usr/kova/probes"), HasSubstr("free\nfree\n")) << action;
    EXPECT_THAT(Read("/usr/kova/probes"), Not(HasSubstr("held"))) << action;
    test::RemoveAll("/usr/kova/probes");
  }
}

TEST_F(DeployTest, AKilledReloadScriptFailsTheService) {
  AddCertificate("abc");
  test::WriteProgram("/usr/libexec/certificate.d/mail", "kill -9 $$");
  EXPECT_FALSE(RegisterAndDeploy("abc", List({smtp_}), "", 2));
  EXPECT_THAT(Log(), ElementsAre("utils.cpp:# Failed to "
                                 "[/usr/libexec/certificate.d/mail][smtp].[0x0004 spawn.cpp:#]",
                                 "utils.cpp:# Failed to reload [mail][smtp]."));
}

class MoveServiceTest : public DeployTest {};

TEST_F(MoveServiceTest, WaitsTenSecondsForTheIndex) {
  AddCertificate("src", List({smtp_}));
  AddCertificate("dst");
  EXPECT_TRUE(RegisterAndDeploy("dst", List({smtp_}), "src", 0));
  EXPECT_THAT(WaitsForTheIndexLock(), ElementsAre(10));
}

TEST_F(MoveServiceTest, ActionsZeroAndOneMoveTheService) {
  for (const int action : {0, 1}) {
    test::RemoveAll(kInfo);
    AddCertificate("src", List({ServiceObject("a", "a"), smtp_, ServiceObject("b", "b")}));
    AddCertificate("dst", List({ServiceObject("c", "c")}));
    AddReloadScript("/usr/libexec/certificate.d/mail");
    EXPECT_TRUE(RegisterAndDeploy("dst", List({smtp_}), "src", action));
    EXPECT_EQ(Services("src"), List({ServiceObject("a", "a"), ServiceObject("b", "b")}));
    EXPECT_EQ(Services("dst"), List({ServiceObject("c", "c"), smtp_}));
    EXPECT_EQ(Read(std::string(kSmtp) + "/cert.pem"), "dst cert.pem\n");
  }
  EXPECT_EQ(Scripts(),
            "/usr/libexec/certificate.d/mail smtp\n/usr/libexec/certificate.d/mail smtp\n");
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(MoveServiceTest, AMoveToItselfEndsWithoutTheService) {
  AddCertificate("abc", List({smtp_}));
  EXPECT_TRUE(RegisterAndDeploy("abc", List({smtp_}), "abc", 0));
  EXPECT_EQ(Services("abc"), List({}));
}

TEST_F(MoveServiceTest, NeedsBothCertificates) {
  AddCertificate("dst");
  EXPECT_FALSE(RegisterAndDeploy("dst", List({smtp_}), "", 0));
  EXPECT_THAT(Log(), ElementsAre("utils.cpp:# Invalid cert id: []",
                                 "utils.cpp:# Failed to update cert info for smtp from  to dst"));
  // The files stay where they were put.
  EXPECT_TRUE(HoldsRequiredFiles(kSmtp));
  EXPECT_EQ(Services("dst"), List({}));
}

TEST_F(MoveServiceTest, TestsTheTargetAgainBeforeTheIndexIsUpdated) {
  AddCertificate("dst");
  // Somebody takes the certificate out of the index while its files are copied.
  const ReplacedTool cp("cp", "echo '{}' > " + std::string(kInfo) + "; exec $REAL \"$@\"");
  EXPECT_FALSE(RegisterAndDeploy("dst", List({smtp_}), "", 3));
  EXPECT_THAT(Log(), ElementsAre("utils.cpp:# Invalid cert id: [dst]",
                                 "utils.cpp:# Failed to update cert info for smtp from  to dst"));
  EXPECT_EQ(Read(kInfo), "{}\n");
}

TEST_F(MoveServiceTest, DoesNotReloadAfterAFailedUpdate) {
  AddCertificate("dst");
  AddReloadScript("/usr/libexec/certificate.d/mail");
  EXPECT_FALSE(RegisterAndDeploy("dst", List({smtp_}), "unknown", 0));
  EXPECT_EQ(Scripts(), "");
  EXPECT_THAT(Log(), Contains("utils.cpp:# Invalid cert id: [unknown]"));
}

TEST_F(MoveServiceTest, GoesOnWithoutAServiceListOnEitherSide) {
  Json::Value info;
  info["dst"]["services"] = "no list";
  info["src"]["desc"] = "no services";
  test::WriteInfo(info);
  AddFolder("src");
  AddFolder("dst");
  EXPECT_TRUE(RegisterAndDeploy("dst", List({smtp_}), "src", 0));
  EXPECT_THAT(Log(), ElementsAre(StartsWith("utils.cpp:# Broken "
                                            "[/usr/kova/etc/certificate/_archive/INFO][dst].[0x"),
                                 StartsWith("utils.cpp:# Broken "
                                            "[/usr/kova/etc/certificate/_archive/INFO][src].[0x")));
  EXPECT_EQ(test::ReadInfo(), info);
}

TEST_F(MoveServiceTest, FailsWithoutTheIndexLock) {
  AddCertificate("src", List({smtp_}));
  AddCertificate("dst");
  MakeFolder(kLockFile);  // cannot be locked
  EXPECT_FALSE(RegisterAndDeploy("dst", List({smtp_}), "src", 0));
  EXPECT_THAT(Log(),
              ElementsAre("utils.cpp:# Lock list file [/tmp/kovacertificate_info.lock] failed",
                          "utils.cpp:# Failed to update cert info for smtp from src to dst"));
  EXPECT_EQ(Services("src"), List({smtp_}));
}

TEST_F(MoveServiceTest, FailsWhenTheIndexCannotBeWritten) {
  AddCertificate("src", List({smtp_}));
  AddCertificate("dst");
  MakeFolder(std::string(kIndexStagingPath) + "/occupied");
  EXPECT_FALSE(RegisterAndDeploy("dst", List({smtp_}), "src", 0));
  EXPECT_THAT(Log(),
              ElementsAre(HasSubstr("to [/usr/kova/etc/certificate/_archive/INFO.temp]."),
                          "utils.cpp:# Failed to write "
                          "[/usr/kova/etc/certificate/_archive/INFO].",
                          "utils.cpp:# Failed to update cert info for smtp from src to dst"));
}

TEST_F(MoveServiceTest, CarriesUnknownMembersThrough) {
  AddCertificate("src", List({smtp_}));
  AddCertificate("dst");
  Json::Value info = test::ReadInfo();
  info["dst"]["desc"] = "mine";
  info["other"] = 7;
  test::WriteInfo(info);
  EXPECT_TRUE(RegisterAndDeploy("dst", List({smtp_}), "src", 0));
  EXPECT_EQ(test::ReadInfo()["dst"]["desc"], "mine");
  EXPECT_EQ(test::ReadInfo()["other"], 7);
}

class AddServiceTest : public DeployTest {
 protected:
  void DeployOld(std::initializer_list<const char*> names) {
    for (const char* name : names) Write(std::string(kSmtp) + "/" + name, "old");
  }
  Json::Value Renamed() const {
    Json::Value object = smtp_;
    object["display_name"] = "renamed";
    return object;
  }
};

TEST_F(AddServiceTest, CopiesAndAddsButNeitherRemovesNorReloads) {
  AddCertificate("src", List({smtp_}));
  AddCertificate("dst");
  AddReloadScript("/usr/libexec/certificate.d/mail");
  DeployOld({"cert.pem", "privkey.pem"});
  EXPECT_TRUE(RegisterAndDeploy("dst", List({Renamed()}), "src", 3));
  EXPECT_EQ(Read(std::string(kSmtp) + "/cert.pem"), "dst cert.pem\n");
  EXPECT_EQ(Services("src"), List({smtp_}));
  EXPECT_EQ(Services("dst"), List({Renamed()}));
  EXPECT_EQ(Scripts(), "");
}

TEST_F(AddServiceTest, NeedsNoSource) {
  AddCertificate("dst");
  EXPECT_TRUE(RegisterAndDeploy("dst", List({smtp_}), "", 3));
  EXPECT_EQ(Services("dst"), List({smtp_}));
}

TEST_F(AddServiceTest, RefreshesAServiceThatHasItsFiles) {
  AddCertificate("src", List({smtp_, ServiceObject("a", "a")}));
  AddCertificate("dst");
  Json::Value info = test::ReadInfo();
  info["odd"] = "no certificate";
  info["none"]["services"] = 3;
  test::WriteInfo(info);
  AddReloadScript("/usr/libexec/certificate.d/mail");
  DeployOld({"cert.pem", "privkey.pem", "fullchain.pem"});
  EXPECT_TRUE(RegisterAndDeploy("dst", List({Renamed()}), "src", 3));
  EXPECT_EQ(Read(std::string(kSmtp) + "/cert.pem"), "old");
  EXPECT_EQ(Services("src"), List({ServiceObject("a", "a"), Renamed()}));
  EXPECT_EQ(Services("dst"), List({}));
  EXPECT_EQ(test::ReadInfo()["odd"], "no certificate");
  EXPECT_EQ(Scripts(), "");
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(AddServiceTest, CopiesAfterARefreshThatFailed) {
  AddCertificate("dst");
  DeployOld({"cert.pem", "privkey.pem", "fullchain.pem"});
  MakeFolder(kLockFile);
  EXPECT_FALSE(RegisterAndDeploy("dst", List({smtp_}), "", 3));
  EXPECT_EQ(Read(std::string(kSmtp) + "/cert.pem"), "dst cert.pem\n");
  EXPECT_THAT(Log(),
              ElementsAre("utils.cpp:# Lock list file [/tmp/kovacertificate_info.lock] failed",
                          "utils.cpp:# Lock list file [/tmp/kovacertificate_info.lock] failed",
                          "utils.cpp:# Failed to update cert info for smtp from  to dst"));
}

TEST_F(AddServiceTest, WaitsAMinuteToRefreshAndTenSecondsToAdd) {
  AddCertificate("dst");
  EXPECT_TRUE(RegisterAndDeploy("dst", List({smtp_}), "", 3));
  EXPECT_THAT(WaitsForTheIndexLock(), ElementsAre(10));
  EXPECT_TRUE(RegisterAndDeploy("dst", List({smtp_}), "", 3));
  EXPECT_THAT(WaitsForTheIndexLock(), ElementsAre(10, 60));
}

TEST_F(AddServiceTest, CopiesAfterARefreshThatCouldNotBeWritten) {
  AddCertificate("dst");
  DeployOld({"cert.pem", "privkey.pem", "fullchain.pem"});
  MakeFolder(std::string(kIndexStagingPath) + "/occupied");
  EXPECT_FALSE(RegisterAndDeploy("dst", List({smtp_}), "", 3));
  EXPECT_EQ(Read(std::string(kSmtp) + "/cert.pem"), "dst cert.pem\n");
  const auto unwritten = HasSubstr("to [/usr/kova/etc/certificate/_archive/INFO.temp].");
  const char* failed = "utils.cpp:# Failed to write [/usr/kova/etc/certificate/_archive/INFO].";
  EXPECT_THAT(Log(), ElementsAre(unwritten, failed, unwritten, failed,
                                 "utils.cpp:# Failed to update cert info for smtp from  to dst"));
}

TEST_F(AddServiceTest, RefreshesAfterPuttingBackAnInterruptedMove) {
  AddCertificate("dst");
  for (const char* name : {"cert.pem", "privkey.pem", "fullchain.pem"}) {
    Write(std::string(kSmtp) + ".bak/" + name, "old");
  }
  test::NoteReplacement(kSmtp);
  const test::SleepCounter sleeps;
  EXPECT_TRUE(RegisterAndDeploy("dst", List({smtp_}), "", 3));
  EXPECT_EQ(Read(std::string(kSmtp) + "/cert.pem"), "old");
}

TEST_F(DeployTest, CopiesTheChainBeforeTheCa) {
  AddCertificate("abc");
  Write(Folder("abc/chain.pem"), "chain");
  Write(Folder("abc/kova-ca-cert.pem"), "ca");
  const ReplacedTool cp(
      "cp", "[ \"$1\" = -f ] && echo \"${3##*/}\" >> /usr/kova/copied; exec $REAL \"$@\"");
  EXPECT_TRUE(RegisterAndDeploy("abc", List({smtp_}), "", 2));
  EXPECT_EQ(Read("/usr/kova/copied"),
            "cert.pem\nprivkey.pem\nfullchain.pem\nchain.pem\nkova-ca-cert.pem\n");
}

TEST_F(DeployTest, WithoutALockEveryServiceIsLoggedAsNotSet) {
  AddCertificate("abc");
  const Json::Value services = List({smtp_, ServiceObject("mail", "imap")});
  for (const char* lock : {"/run/kova-certificate-deploy.lock", "/run/kova-certificate/abc"}) {
    syslog_.Clear();
    test::RemoveAll(lock);
    MakeFolder(lock);  // cannot be locked
    EXPECT_EQ(RegisterAndDeploy("abc", services, "", 2).Text(),
              "cannot lock [" + std::string(lock) + "]: Invalid argument");
    test::RemoveAll(lock);
    const std::string failed = "utils.cpp:# Lock list file [" + std::string(lock) + "] failed";
    EXPECT_THAT(
        Log(), ElementsAre(failed, "utils.cpp:# Failed to set cert [abc] for [mail][smtp].", failed,
                           "utils.cpp:# Failed to set cert [abc] for [mail][imap]."));
  }
  EXPECT_FALSE(Exists(kSmtp));
}

TEST_F(DeployTest, TellsWhatFailedAndNotWhatWasPutRight) {
  const test::DealtKeys keys;
  AddCertificate("abc");
  std::filesystem::remove(Folder("abc/fullchain.pem"));
  Write("/usr/kova/etc/certificate/mail", "a file is in the way");
  EXPECT_EQ(RegisterAndDeploy("abc", List({smtp_}), "", 2).Text(),
            "Failed to create /usr/kova/etc/certificate/mail/smtp: Not a directory");
  EXPECT_THAT(Log(), Contains(HasSubstr("Lack of necessary files")));
}

TEST_F(DeployTest, FinishesANotedMoveBeforeItCopies) {
  AddCertificate("abc", List({smtp_}));
  Write(Folder("Fresh1/cert.pem"), "new");
  {
    const CertificateLock lock("abc");
    ASSERT_TRUE(NoteMove(lock, Folder("Fresh1"), {"cert.pem"}));
  }
  bool has_default = false;
  EXPECT_TRUE(DeployToOwnServices("abc", has_default));
  EXPECT_EQ(Read(std::string(kSmtp) + "/cert.pem"), "new");
  EXPECT_FALSE(IsMoveNoted("abc")) << "its services have the new files";
}

TEST_F(DeployTest, LeavesAServiceThatWasMovedSinceItsListWasRead) {
  const Json::Value other = ServiceObject("mail", "imap");
  AddCertificate("abc", List({other}));
  AddCertificate("heir", List({smtp_}));
  AddReloadScript("/usr/libexec/certificate.d/mail");
  EXPECT_TRUE(RedeployListed("abc", List({smtp_, other})));
  EXPECT_FALSE(Exists(kSmtp));
  EXPECT_EQ(Read("/usr/kova/etc/certificate/mail/imap/cert.pem"), "abc cert.pem\n");
  EXPECT_EQ(Scripts(), "/usr/libexec/certificate.d/mail imap\n");
}

TEST_F(DeployTest, RedeploysNothingOfACertificateThatIsNotUsable) {
  AddCertificate("abc", List({smtp_}));
  EXPECT_EQ(RedeployListed("other", List({smtp_})).Text(), "Invalid cert id: [other]");
  EXPECT_EQ(RedeployListed("other", List({})).Text(), "Invalid cert id: [other]");
  EXPECT_FALSE(Exists("/usr/kova/running")) << "the relay daemon was asked about";
}

TEST_F(DeployTest, RedeploysWhatItWasGivenWhenTheIndexIsGone) {
  AddCertificate("abc", List({smtp_}));
  // Between the test of the certificate and the service's turn.
  AddHook("service-running", "exit 1");
  const ReplacedTool cp("cp", "echo '{' > " + std::string(kInfo) + "; exec $REAL \"$@\"");
  EXPECT_TRUE(RedeployListed("abc", List({ServiceObject("mail", "imap"), smtp_})));
  EXPECT_FALSE(Exists("/usr/kova/etc/certificate/mail/imap"));
  EXPECT_EQ(Read(std::string(kSmtp) + "/cert.pem"), "abc cert.pem\n");
}

TEST_F(MoveServiceTest, TestsTheTargetBeforeTheSource) {
  AddCertificate("src", List({smtp_}));
  AddCertificate("dst");
  // Both are taken out of the index while the files are copied.
  const ReplacedTool cp("cp", "echo '{}' > " + std::string(kInfo) + "; exec $REAL \"$@\"");
  EXPECT_EQ(RegisterAndDeploy("dst", List({smtp_}), "src", 0).Text(), "Invalid cert id: [dst]");
  EXPECT_THAT(Log(),
              ElementsAre("utils.cpp:# Invalid cert id: [dst]",
                          "utils.cpp:# Failed to update cert info for smtp from src to dst"));
}

class TransferTest : public DeployTest {};

TEST_F(TransferTest, TakesTheServiceFromWhoeverListsItByThen) {
  AddCertificate("one", List({smtp_, ServiceObject("a", "a")}));
  AddCertificate("two", List({smtp_}));
  AddCertificate("dst");
  EXPECT_TRUE(TransferService("dst", smtp_, ""));
  EXPECT_EQ(Services("one"), List({ServiceObject("a", "a")}));
  EXPECT_EQ(Services("two"), List({}));
  EXPECT_EQ(Services("dst"), List({smtp_}));
  EXPECT_EQ(Read(std::string(kSmtp) + "/cert.pem"), "dst cert.pem\n");
}

TEST_F(TransferTest, TakesItFromTheOthersAlsoWhenTheTargetListsItAlready) {
  AddCertificate("one", List({smtp_}));
  AddCertificate("dst", List({smtp_}));
  EXPECT_TRUE(TransferService("dst", smtp_, ""));
  EXPECT_EQ(Services("one"), List({}));
  EXPECT_EQ(Services("dst"), List({smtp_}));
}

TEST_F(TransferTest, NeedsAUsableTarget) {
  AddCertificate("one", List({smtp_}));
  EXPECT_EQ(TransferService("dst", smtp_, "").Text(), "Invalid cert id: [dst]");
  EXPECT_FALSE(Exists(kSmtp));
  EXPECT_FALSE(Exists("/usr/kova/running")) << "the relay daemon was asked about";
  EXPECT_EQ(Services("one"), List({smtp_}));
}

TEST_F(TransferTest, LeavesTheIndexWhenTheTargetAloneListsIt) {
  AddCertificate("dst", List({smtp_}));
  const auto stamp = std::filesystem::last_write_time(kInfo);
  EXPECT_TRUE(TransferService("dst", smtp_, ""));
  EXPECT_EQ(std::filesystem::last_write_time(kInfo), stamp);
  EXPECT_TRUE(HoldsRequiredFiles(kSmtp));
}

TEST_F(TransferTest, TakesNothingFromACertificateThatNoLongerListsIt) {
  AddCertificate("src");
  AddCertificate("other", List({smtp_}));
  AddCertificate("dst");
  EXPECT_EQ(TransferService("dst", smtp_, "src").Text(),
            "certificate [src] does not list the service any more");
  EXPECT_FALSE(Exists(kSmtp));
  EXPECT_EQ(Services("other"), List({smtp_}));
}

TEST_F(TransferTest, HoldsNoLockWhileItReloads) {
  AddCertificate("src", List({smtp_}));
  AddCertificate("dst");
  test::WriteProgram("/usr/libexec/certificate.d/mail",
                     "for lock in /run/*.lock /run/kova-certificate/* /tmp/*.lock; do\n"
                     "  [ -f $lock ] || continue\n  echo $lock >> /usr/kova/tried\n"
                     "  flock -n $lock true || echo $lock >> /usr/kova/held\ndone");
  EXPECT_TRUE(TransferService("dst", smtp_, ""));
  EXPECT_THAT(Read("/usr/kova/tried"), HasSubstr("kova-certificate-deploy.lock"));
  EXPECT_FALSE(Exists("/usr/kova/held"));
}

class EntryPointTest : public DeployTest {};

TEST_F(EntryPointTest, DeploysACertificateToItsOwnServices) {
  AddCertificate("abc", List({smtp_}));
  bool has_default = true;
  EXPECT_TRUE(DeployToOwnServices("abc", has_default));
  EXPECT_FALSE(has_default);
  EXPECT_TRUE(HoldsRequiredFiles(kSmtp));
  AddCertificate("abc", List({smtp_, ServiceObject("system", "default")}));
  EXPECT_TRUE(DeployToOwnServices("abc", has_default));
  EXPECT_TRUE(has_default);
}

TEST_F(EntryPointTest, SetsTheSystemDefaultFlagOnSuccessOnly) {
  AddCertificate("abc", List({ServiceObject("system", "default"),
                              ServiceObject("mail", "smtp", "nobody-of-that-name")}));
  bool has_default = false;
  EXPECT_FALSE(DeployToOwnServices("abc", has_default));
  EXPECT_FALSE(has_default);
}

TEST_F(EntryPointTest, LocksNoCertificateThatHasNoServicesAndNoNote) {
  AddCertificate("abc");
  bool has_default = false;
  EXPECT_TRUE(DeployToOwnServices("abc", has_default));
  EXPECT_FALSE(Exists("/run/kova-certificate/abc"));
}

TEST_F(EntryPointTest, LogsWhyItDidNotDeploy) {
  AddCertificate("abc", List({ServiceObject("mail", "smtp", "nobody-of-that-name")}));
  bool has_default = false;
  EXPECT_FALSE(DeployToOwnServices("abc", has_default));
  EXPECT_THAT(Log(), Contains("utils.cpp:# Failed to deploy cert to services for abc"));
  syslog_.Clear();
  EXPECT_FALSE(DeployToOwnServices("unknown", has_default));
  EXPECT_THAT(Log(), ElementsAre("utils.cpp:# Invalid cert id: [unknown]",
                                 StartsWith("utils.cpp:# Broken ["),
                                 "utils.cpp:# Failed to get service list of unknown"));
}

TEST_F(EntryPointTest, HandsServicesToTheDefaultCertificate) {
  AddCertificate("src", List({smtp_}));
  AddCertificate("std");
  EXPECT_FALSE(HandToDefault(List({smtp_}), 0, "src"));
  EXPECT_THAT(Log(), IsEmpty());
  EXPECT_FALSE(Exists(kSmtp));
  Write(kDefaultPath, "std\n");
  EXPECT_TRUE(HandToDefault(List({smtp_}), 0, "src"));
  EXPECT_EQ(Services("src"), List({}));
  EXPECT_EQ(Services("std"), List({smtp_}));
  EXPECT_EQ(Read(std::string(kSmtp) + "/cert.pem"), "std cert.pem\n");
}

}  // namespace
}  // namespace kova::cert_archive
