// What starts the renewals of this host: the cron job, the systemd timer, or both.
#include <string>

#include "archive_cli/host_check.h"
#include "lifecycle/acme_folders.h"
#include "platform/crond.h"
#include "platform/schedulers.h"

namespace kova::archive_cli {
namespace {

using platform::CronDaemon;

constexpr char kSubject[] = "renewal job";
constexpr char kName[] = "kova-letsencrypt";
constexpr char kJob[] = "/etc/cron.d/kova-letsencrypt";
constexpr char kTimer[] = "kova-letsencrypt.timer";

Finding Failing(const std::string& text, const std::string& advice) {
  return {Level::kFailure, kSubject, text, advice};
}

Finding LookAtJob() {
  switch (platform::LookForCronDaemon()) {
    case CronDaemon::kMissing:
      return Failing(
          std::string(kJob) + " is in place, but there is no cron daemon to run it",
          "install one that reads /etc/cron.d (Debian: cron), or systemctl enable --now " +
              std::string(kTimer));
    case CronDaemon::kStopped:
      return Failing(std::string(kJob) + " is in place, but the cron daemon does not run",
                     "start it, and see to it that it starts with the host (systemctl enable "
                     "--now cron)");
    case CronDaemon::kRunning:
      break;
  }
  return {Level::kOk, kSubject, std::string(kJob) + " is in place, and a cron daemon runs it", ""};
}

Finding LookAtTimer() {
  if (platform::RunsSystemd()) {
    return {Level::kOk, kSubject, std::string(kTimer) + " is enabled", ""};
  }
  return Failing(std::string(kTimer) + " is enabled, but systemd does not run here",
                 "kova-letsencrypt add-cronjob, with a cron daemon");
}

Finding None() {
  if (ListAcmeFolders().empty()) {
    return {Level::kOk, kSubject, "none, and no certificate to renew yet", ""};
  }
  return Failing(std::string(kJob) + " does not exist, and " + kTimer + " is not enabled",
                 "kova-letsencrypt add-cronjob; on a host with systemd and no cron daemon "
                 "systemctl enable --now " +
                     std::string(kTimer));
}

// One of them is enough; what keeps the other from running is then nothing to worry about.
Finding Better(const Finding& job, const Finding& timer) {
  if (job.level != Level::kOk) return timer;
  if (timer.level != Level::kOk) return job;
  return {Level::kOk, kSubject,
          job.text + "; " + timer.text + " as well, which does no harm: one waits for the other",
          ""};
}

}  // namespace

std::vector<Finding> CheckRenewalJob() {
  const bool has_job = KOVA::KOVACrond::ConfigManager(kName, false).Exist();
  const bool has_timer = platform::IsTimerEnabled(kName);
  if (has_job && has_timer) return {Better(LookAtJob(), LookAtTimer())};
  if (has_job) return {LookAtJob()};
  if (has_timer) return {LookAtTimer()};
  return {None()};
}

}  // namespace kova::archive_cli
