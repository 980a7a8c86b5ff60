#include "platform/service.h"

#include <gmock/gmock.h>
#include <syslog.h>
#include <unistd.h>

#include <filesystem>

#include "host_files.h"
#include "platform/device.h"
#include "platform/hooks.h"
#include "scratch.h"
#include "syslog_capture.h"

namespace kova::platform {
namespace {

using test::ReadFile;
using test::Scratch;
using test::SyslogCapture;
using test::WriteFile;
using testing::ElementsAre;
using testing::IsEmpty;

// Hooks and the init system's tool of this host are scripts that note how they were called.
class ServiceTest : public testing::Test {
 protected:
  ServiceTest() {
    Clean();
    std::filesystem::rename(kSystemctl, kKept);
    PutSystemctl(0);
  }
  ~ServiceTest() override {
    Clean();
    std::filesystem::rename(kKept, kSystemctl);
  }

  static void Clean() {
    std::filesystem::remove_all(kHookFolder);
    std::filesystem::remove_all("/run/systemd");
    unlink(kDeviceRecordPath);
  }

  void PutSystemctl(int status) { PutScript(kSystemctl, "systemctl", status); }
  void PutHook(const std::string& name, int status) {
    PutScript(std::string(kHookFolder) + "/" + name, "hook " + name, status);
  }
  void PutScript(const std::string& path, const std::string& name, int status) {
    unlink(path.c_str());
    WriteFile(path,
              "#!/bin/sh\necho \"" + name + " $*\" >> " + calls_ +
                  "\necho printed\necho complaint >&2\n" + "exit " + std::to_string(status) + "\n",
              0755);
  }

  // What was called since the last time.
  std::string Calls() {
    const std::string calls = ReadFile(calls_);
    unlink(calls_.c_str());
    return calls;
  }

  static bool RestartWebFrontend() {
    kovaw3::Engine engine;
    kovaw3::Omx omx(engine);
    return omx.RestartService();
  }

  static constexpr char kSystemctl[] = "/usr/bin/systemctl";
  static constexpr char kKept[] = "/usr/bin/systemctl.kept";
  Scratch scratch_;
  std::string calls_ = scratch_.Path("calls");
  SyslogCapture log_;
};

TEST_F(ServiceTest, ANotificationIsAWarningInTheLog) {
  EXPECT_EQ(KOVASysNotifySendNotifiction("certificate_broken", nullptr), 0);
  EXPECT_THAT(log_.Texts(), ElementsAre("service:# System notification [certificate_broken]"));
  EXPECT_EQ(log_.Messages().at(0).priority, LOG_WARNING);
}

TEST_F(ServiceTest, ANotificationGoesToTheHook) {
  PutHook("notify", 0);
  EXPECT_EQ(KOVASysNotifySendNotifiction("certificate_broken", nullptr), 0);
  EXPECT_EQ(Calls(), "hook notify certificate_broken\n");
  PutHook("notify", 3);
  EXPECT_NE(KOVASysNotifySendNotifiction("certificate_broken", nullptr), 0);
  EXPECT_THAT(log_.Texts(), IsEmpty());
}

TEST_F(ServiceTest, ANotificationMayHaveFurtherWords) {
  EXPECT_EQ(kova::platform::SendNotification("tag", {"id", "why it failed"}), 0);
  EXPECT_THAT(log_.Texts(), testing::ElementsAre(
                                testing::EndsWith("System notification [tag][id][why it failed]")));
  PutHook("notify", 0);
  EXPECT_EQ(kova::platform::SendNotification("tag", {"id", "why it failed"}), 0);
  EXPECT_EQ(Calls(), "hook notify tag id why it failed\n");
}

TEST_F(ServiceTest, NothingRunsWhereSystemdIsNotTheInitSystem) {
  EXPECT_EQ(KLIBServicectlIsJobRunning("kovarelayd", 0), 0);
  EXPECT_EQ(Calls(), "");
}

TEST_F(ServiceTest, SystemdKnowsWhatRuns) {
  std::filesystem::create_directories("/run/systemd/system");
  EXPECT_NE(KLIBServicectlIsJobRunning("kovarelayd", 0), 0);
  EXPECT_EQ(Calls(), "systemctl is-active --quiet kovarelayd\n");
  PutSystemctl(3);
  EXPECT_EQ(KLIBServicectlIsJobRunning("kovarelayd", 0), 0);
  unlink(kSystemctl);
  EXPECT_EQ(KLIBServicectlIsJobRunning("kovarelayd", 0), 0);
  EXPECT_THAT(log_.Texts(), IsEmpty());
}

TEST_F(ServiceTest, TheHookKnowsWhatRuns) {
  PutHook("service-running", 0);
  EXPECT_NE(KLIBServicectlIsJobRunning("kovarelayd", 0), 0);
  PutHook("service-running", 1);
  EXPECT_EQ(KLIBServicectlIsJobRunning("kovarelayd", 0), 0);
  EXPECT_EQ(Calls(), "hook service-running kovarelayd\nhook service-running kovarelayd\n");
}

TEST_F(ServiceTest, AServiceIsReloadedBySystemctl) {
  EXPECT_EQ(KLIBServiceReload("kovarelayd"), 0);
  EXPECT_EQ(Calls(), "systemctl reload-or-restart kovarelayd\n");
  EXPECT_THAT(log_.Texts(), IsEmpty());
  PutSystemctl(5);
  EXPECT_EQ(KLIBServiceReload("kovarelayd"), -1);
  EXPECT_THAT(log_.Texts(), ElementsAre("process:# /usr/bin/systemctl failed [5]: complaint"));
}

TEST_F(ServiceTest, AServiceIsReloadedByTheHook) {
  PutHook("service-reload", 0);
  EXPECT_EQ(KLIBServiceReload("kovarelayd"), 0);
  PutHook("service-reload", 7);
  EXPECT_EQ(KLIBServiceReload("kovarelayd"), -1);
  EXPECT_EQ(Calls(), "hook service-reload kovarelayd\nhook service-reload kovarelayd\n");
}

TEST_F(ServiceTest, TheWebFrontendOfTheDeviceRecordIsRestarted) {
  WriteFile(kDeviceRecordPath, R"({"web_frontend": "nginx.service"})", 0600);
  EXPECT_TRUE(RestartWebFrontend());
  EXPECT_EQ(Calls(), "systemctl restart nginx.service\n");
  PutSystemctl(5);
  EXPECT_FALSE(RestartWebFrontend());
}

TEST_F(ServiceTest, WithoutAWebFrontendTheRestartIsLoggedAndNothingRun) {
  EXPECT_TRUE(RestartWebFrontend());
  EXPECT_EQ(Calls(), "");
  EXPECT_THAT(log_.Texts(), ElementsAre("service:# Web front-end restart: no web_frontend in the "
                                        "device record, nothing restarted"));
  EXPECT_EQ(log_.Messages().at(0).priority, LOG_WARNING);
}

TEST_F(ServiceTest, TheWebFrontendIsRestartedByTheHook) {
  PutHook("web-restart", 0);
  EXPECT_TRUE(RestartWebFrontend());
  PutHook("web-restart", 1);
  EXPECT_FALSE(RestartWebFrontend());
  EXPECT_EQ(Calls(), "hook web-restart \nhook web-restart \n");
  EXPECT_THAT(log_.Texts(), IsEmpty());
}

TEST_F(ServiceTest, ChildrenPrintNothingOnStandardOutput) {
  PutHook("notify", 0);
  testing::internal::CaptureStdout();
  EXPECT_EQ(KOVASysNotifySendNotifiction("tag", nullptr), 0);
  EXPECT_EQ(KLIBServiceReload("kovarelayd"), 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST_F(ServiceTest, AHookThatIsIgnoredLeavesTheBuiltInBehaviour) {
  PutHook("service-reload", 7);
  std::filesystem::permissions(std::string(kHookFolder) + "/service-reload",
                               std::filesystem::perms::group_write,
                               std::filesystem::perm_options::add);
  EXPECT_EQ(KLIBServiceReload("kovarelayd"), 0);
  EXPECT_EQ(Calls(), "systemctl reload-or-restart kovarelayd\n");
}

}  // namespace
}  // namespace kova::platform
