// Deployment under fire: killed runs, and several at the same time.
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <random>

#include "archive/deploy.h"
#include "archive_fixture.h"
#include "platform/clock.h"

namespace kova::cert_archive {
namespace {

using test::ArchiveTest;
using test::Exists;
using test::Folder;
using test::List;
using test::Names;
using test::Read;
using test::ServiceObject;
using test::Write;
using testing::ElementsAre;

class DeployUnderFireTest : public ArchiveTest {
 protected:
  DeployUnderFireTest() {
    prctl(PR_SET_CHILD_SUBREAPER, 1);  // the tools of a killed run are waited for here
    AddHook("service-running", "exit 1");
    for (const char* id : {"one", "two"}) {
      AddCertificate(id);
      Write(Folder(id) + "/chain.pem", std::string(id) + " chain.pem\n", 0400);
    }
  }
  ~DeployUnderFireTest() override { prctl(PR_SET_CHILD_SUBREAPER, 0); }

  static void ReapEverything() {
    while (waitpid(-1, nullptr, 0) > 0 || errno == EINTR) continue;
  }

  // The certificate whose whole set the folder holds, or "".
  static std::string SetIn(const std::string& folder) {
    for (const std::string id : {"one", "two"}) {
      bool whole = Names(folder).size() == 4;
      for (const char* name : {"cert.pem", "chain.pem", "fullchain.pem", "privkey.pem"}) {
        const std::string file = folder + "/" + name;
        whole = whole && Exists(file) && Read(file) == id + " " + name + "\n";
      }
      if (whole) return id;
    }
    return "";
  }

  const std::string folder_ = "/usr/kova/etc/certificate/mail/smtp";
  const Json::Value smtp_ = List({ServiceObject("mail", "smtp")});
};

TEST_F(DeployUnderFireTest, AKilledRunLeavesTheWholeOldOrTheWholeNewSet) {
  std::mt19937 random(19700101);
  std::uniform_real_distribution<double> part(0, 1);
  double longest = 45000;  // microseconds; follows the machine, so that some runs get through
  ASSERT_TRUE(RegisterAndDeploy("one", smtp_, "", kActionRedeploy));
  std::string deployed = "one";
  int changed = 0;
  int in_backup = 0;
  for (int round = 0; round < 80; ++round) {
    const std::string next = deployed == "one" ? "two" : "one";
    const pid_t run = fork();
    if (run == 0) {
      platform::SetSleeper(
          [](std::chrono::milliseconds) {});  // its killed forerunner's tools are gone
      _exit(RegisterAndDeploy(next, smtp_, "", kActionRedeploy) ? 0 : 1);
    }
    usleep(static_cast<useconds_t>(part(random) * longest));
    kill(run, SIGKILL);
    ReapEverything();
    std::string found = SetIn(folder_);
    if (found.empty()) {
      found = SetIn(folder_ + ".bak");
      ASSERT_EQ(found, deployed) << "round " << round;
      ++in_backup;
    }
    ASSERT_TRUE(found == deployed || found == next) << "round " << round;
    if (found == next) ++changed;
    longest *= found == next ? 0.9 : 1.1;
    deployed = found;
  }
  EXPECT_GT(changed, 0) << "no run got as far as the change";
  EXPECT_LT(changed, 80) << "no run was killed in time";
  RecordProperty("found_in_backup", in_backup);
  // A later run cleans up.
  ASSERT_TRUE(RegisterAndDeploy("one", smtp_, "", kActionRedeploy));
  EXPECT_EQ(SetIn(folder_), "one");
  EXPECT_THAT(Names("/usr/kova/etc/certificate/mail"), ElementsAre("smtp"));
}

TEST_F(DeployUnderFireTest, RunsForOneServiceDoNotMixTheirFiles) {
  std::vector<pid_t> runs;
  for (int i = 0; i < 8; ++i) {
    const std::string id = i % 2 == 0 ? "one" : "two";
    const pid_t run = fork();
    if (run == 0) {
      bool done = true;
      for (int n = 0; n < 5; ++n) {
        done = RegisterAndDeploy(id, smtp_, "", kActionRedeploy) && done;
      }
      _exit(done ? 0 : 1);
    }
    runs.push_back(run);
  }
  for (const pid_t run : runs) {
    int status = -1;
    waitpid(run, &status, 0);
    EXPECT_EQ(status, 0);
  }
  EXPECT_NE(SetIn(folder_), "");
  EXPECT_THAT(Names("/usr/kova/etc/certificate/mail"), ElementsAre("smtp"));
}

TEST_F(DeployUnderFireTest, ASecondRunCopiesNothingUntilTheFirstIsDone) {
  const test::ReplacedTool cp(
      "cp",
      "[ \"$1\" = -f ] && echo \"$2\" >> /usr/kova/copied\n"
      "touch /usr/kova/busy\n"
      "while [ -e /usr/kova/hold ]; do sleep 0.01; done\nexec $REAL \"$@\"");
  Write("/usr/kova/hold", "");
  const auto start = [&](const char* id) {
    const pid_t run = fork();
    if (run == 0) _exit(RegisterAndDeploy(id, smtp_, "", kActionRedeploy) ? 0 : 1);
    return run;
  };
  const pid_t first = start("one");
  while (!Exists("/usr/kova/busy")) usleep(1000);
  const pid_t second = start("two");
  usleep(200000);
  EXPECT_EQ(Read("/usr/kova/copied"), Folder("one/cert.pem") + "\n");
  test::RemoveAll("/usr/kova/hold");
  for (const pid_t run : {first, second}) {
    int status = -1;
    waitpid(run, &status, 0);
    EXPECT_EQ(status, 0);
  }
  EXPECT_EQ(SetIn(folder_), "two");
}

TEST_F(DeployUnderFireTest, EightProcessesMovingServicesLoseNone) {
  Json::Value services(Json::arrayValue);
  for (int i = 0; i < 8; ++i) services.append(ServiceObject("mail", "s" + std::to_string(i)));
  AddCertificate("one", services);
  std::vector<pid_t> runs;
  for (const Json::Value& service : services) {
    const pid_t run = fork();
    if (run == 0) _exit(RegisterAndDeploy("two", List({service}), "one", kActionMove) ? 0 : 1);
    runs.push_back(run);
  }
  for (const pid_t run : runs) {
    int status = -1;
    waitpid(run, &status, 0);
    EXPECT_EQ(status, 0);
  }
  EXPECT_EQ(test::Services("one"), List({}));
  EXPECT_EQ(test::Services("two").size(), 8U);
}

}  // namespace
}  // namespace kova::cert_archive
