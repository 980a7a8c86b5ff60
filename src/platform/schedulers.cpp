#include "platform/schedulers.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <memory>

#include "platform/files.h"

namespace kova::platform {
namespace {

constexpr char kJobFolder[] = "/etc/cron.d";
constexpr char kTimersFolder[] = "/etc/systemd/system/timers.target.wants/";

// Programs of /usr/sbin; a process is named like its program.
constexpr std::array kDaemons = {"cron", "crond", "bcron-sched"};

// Makes timers of the jobs when systemd starts; has no process of its own.
constexpr char kGenerator[] = "/lib/systemd/system-generators/systemd-crontab-generator";

struct FolderClose {
  void operator()(DIR* folder) const noexcept { closedir(folder); }
};

bool IsDaemon(const std::string& process) {
  std::string name;
  if (!ReadWholeFile(process + "/comm", name)) return false;
  return std::any_of(kDaemons.begin(), kDaemons.end(),
                     [&](const char* daemon) { return name == std::string(daemon) + "\n"; });
}

bool SeesOurJobs(const std::string& process) {
  struct stat ours {};
  struct stat its {};
  return stat(kJobFolder, &ours) == 0 &&
         stat((process + "/root" + kJobFolder).c_str(), &its) == 0 && ours.st_dev == its.st_dev &&
         ours.st_ino == its.st_ino;
}

bool DaemonRuns() {
  const std::unique_ptr<DIR, FolderClose> processes(opendir("/proc"));
  while (const dirent* entry = processes ? readdir(processes.get()) : nullptr) {
    const std::string name = entry->d_name;
    if (name.find_first_not_of("0123456789") != std::string::npos) continue;
    if (IsDaemon("/proc/" + name) && SeesOurJobs("/proc/" + name)) return true;
  }
  return false;
}

bool IsDaemonInstalled() {
  return std::any_of(kDaemons.begin(), kDaemons.end(), [](const char* daemon) {
    return KLIBCFileExist(std::string("/usr/sbin/") + daemon);
  });
}

}  // namespace

CronDaemon LookForCronDaemon() {
  const bool has_generator = KLIBCFileExist(kGenerator);
  if (DaemonRuns() || (has_generator && RunsSystemd())) return CronDaemon::kRunning;
  return has_generator || IsDaemonInstalled() ? CronDaemon::kStopped : CronDaemon::kMissing;
}

bool RunsSystemd() { return KLIBCFileCheckDir("/run/systemd/system"); }

bool IsTimerEnabled(const std::string& name) {
  struct stat status {};
  return lstat((kTimersFolder + name + ".timer").c_str(), &status) == 0;
}

}  // namespace kova::platform
