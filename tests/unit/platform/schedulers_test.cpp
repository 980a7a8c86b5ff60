#include "platform/schedulers.h"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <string>

#include "host_files.h"

namespace kova::platform {
namespace {

using test::WriteFile;

constexpr char kSystemd[] = "/run/systemd/system";
constexpr char kGenerators[] = "/lib/systemd/system-generators";
constexpr char kWants[] = "/etc/systemd/system/timers.target.wants";

// A process of that name; with `elsewhere` it sees another folder of jobs than this one.
class Process {
 public:
  explicit Process(const std::string& name, bool elsewhere = false) {
    int ready[2] = {};
    EXPECT_EQ(pipe(ready), 0);
    pid_ = fork();
    if (pid_ == 0) Live(name, elsewhere, ready[1]);
    close(ready[1]);
    char byte = 0;
    EXPECT_EQ(read(ready[0], &byte, 1), 1);
    close(ready[0]);
  }
  ~Process() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

 private:
  [[noreturn]] static void Live(const std::string& name, bool elsewhere, int ready) {
    prctl(PR_SET_NAME, name.c_str());
    if (elsewhere &&
        (unshare(CLONE_NEWNS) != 0 || mount("tmpfs", "/etc/cron.d", "tmpfs", 0, nullptr) != 0)) {
      _exit(1);
    }
    if (write(ready, "x", 1) != 1) _exit(1);
    for (;;) pause();
  }

  pid_t pid_ = -1;
};

// The daemon of this host is put aside; each test puts there what it wants.
class SchedulersTest : public testing::Test {
 protected:
  SchedulersTest() {
    std::filesystem::create_directories("/etc/cron.d");
    std::filesystem::rename("/usr/sbin/cron", "/usr/sbin/cron.away");
    std::filesystem::create_directories(kGenerators);
    EXPECT_EQ(mount("tmpfs", kGenerators, "tmpfs", 0, nullptr), 0);
  }
  ~SchedulersTest() override {
    umount(kGenerators);
    for (const char* name : {"cron", "crond", "bcron-sched"}) {
      std::filesystem::remove(std::string("/usr/sbin/") + name);
    }
    std::filesystem::rename("/usr/sbin/cron.away", "/usr/sbin/cron");
    std::filesystem::remove_all("/run/systemd");
    std::filesystem::remove(std::string(kWants) + "/probe.timer");
  }
};

TEST_F(SchedulersTest, ADaemonThatIsNotThereIsMissing) {
  EXPECT_EQ(LookForCronDaemon(), CronDaemon::kMissing);
}

TEST_F(SchedulersTest, ADaemonOfAnyKindThatDoesNotRunIsStopped) {
  for (const char* name : {"cron", "crond", "bcron-sched"}) {
    const std::string path = std::string("/usr/sbin/") + name;
    WriteFile(path, "", 0755);
    EXPECT_EQ(LookForCronDaemon(), CronDaemon::kStopped) << name;
    std::filesystem::remove(path);
  }
}

TEST_F(SchedulersTest, AProcessOfADaemonsNameIsRunning) {
  for (const char* name : {"cron", "crond", "bcron-sched"}) {
    const Process daemon(name);
    EXPECT_EQ(LookForCronDaemon(), CronDaemon::kRunning) << name;
  }
}

TEST_F(SchedulersTest, AProcessOfAnotherNameIsNone) {
  const Process one("cronolog");
  const Process other("cro");
  EXPECT_EQ(LookForCronDaemon(), CronDaemon::kMissing);
}

TEST_F(SchedulersTest, ADaemonThatSeesOtherJobsDoesNotCount) {
  const Process daemon("cron", true);
  EXPECT_EQ(LookForCronDaemon(), CronDaemon::kMissing);
}

TEST_F(SchedulersTest, AGeneratorOfTimersRunsWhereSystemdDoes) {
  WriteFile(std::string(kGenerators) + "/systemd-crontab-generator", "", 0755);
  EXPECT_EQ(LookForCronDaemon(), CronDaemon::kStopped);
  std::filesystem::create_directories(kSystemd);
  EXPECT_EQ(LookForCronDaemon(), CronDaemon::kRunning);
}

TEST_F(SchedulersTest, SystemdAloneRunsNoJobs) {
  std::filesystem::create_directories(kSystemd);
  EXPECT_EQ(LookForCronDaemon(), CronDaemon::kMissing);
}

TEST_F(SchedulersTest, SystemdRunsWhereItsFolderIs) {
  EXPECT_FALSE(RunsSystemd());
  std::filesystem::create_directories(kSystemd);
  EXPECT_TRUE(RunsSystemd());
}

TEST_F(SchedulersTest, ATimerIsEnabledByItsLinkWhereverThatLeads) {
  std::filesystem::create_directories(kWants);
  EXPECT_FALSE(IsTimerEnabled("probe"));
  std::filesystem::create_symlink("/nowhere", std::string(kWants) + "/probe.timer");
  EXPECT_TRUE(IsTimerEnabled("probe"));
  EXPECT_FALSE(IsTimerEnabled("prob"));
}

}  // namespace
}  // namespace kova::platform
