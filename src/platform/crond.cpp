#include "platform/crond.h"

#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <utility>

#include "platform/device.h"
#include "platform/error.h"
#include "platform/file_writer.h"
#include "platform/files.h"
#include "platform/service.h"

namespace KOVA::KOVACrond {
namespace {

using kova::platform::JobMoment;
using kova::platform::RecordError;

constexpr char kFolder[] = "/etc/cron.d/";
constexpr mode_t kMode = 0644;

struct Job {
  std::string name;
  std::string command;
  std::string user;
  std::string period;
};

JobMoment MomentOnThisHost(const std::string& job) {
  std::string host = kova::platform::MachineId();
  if (host.empty()) host = kova::platform::MacAddressText();
  return kova::platform::MomentOfJob(host, job);
}

// The fields day of month, month and weekday; empty for a period that is none.
std::string DaysOf(const std::string& period, uint64_t weekday) {
  if (period == "daily") return "* * *";
  if (period == "weekly") return "* * " + std::to_string(weekday);
  if (period == "monthly") return "1 * *";
  return {};
}

// cron ends the command at a "%" that has no backslash; in the shell's eyes "\%" and "%" are one.
std::string Escaped(const std::string& command) {
  std::string text;
  bool escaped = false;
  for (const char c : command) {
    if (c == '%' && !escaped) text += '\\';
    text += c;
    escaped = c == '\\' && !escaped;
  }
  return text;
}

bool IsOneLine(const std::string& text) {
  const auto is_control = [](unsigned char c) { return (c < 0x20 && c != '\t') || c == 0x7f; };
  return text.find_first_not_of(" \t") != std::string::npos &&
         std::none_of(text.begin(), text.end(), is_control);
}

bool ReadJob(const Json::Value& object, Job& job) {
  const std::array<std::pair<const char*, std::string*>, 4> members{
      {{"name", &job.name}, {"cmd", &job.command}, {"user", &job.user}, {"period", &job.period}}};
  if (!object.isObject()) return false;
  return std::all_of(members.begin(), members.end(), [&](const auto& member) {
    const Json::Value& value = object[member.first];
    if (!value.isString()) return false;
    *member.second = value.asString();
    return IsOneLine(*member.second);
  });
}

// cron drops a whole file over one user that it does not know.
bool IsUser(const std::string& name) {
  uid_t uid = 0;
  gid_t gid = 0;
  return name.find_first_of(" \t") == std::string::npos && KOVAUserGetUGID(name, &uid, &gid) == 0;
}

// cron ignores files whose names hold anything else.
bool IsFileName(const std::string& name) {
  constexpr char kAllowed[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-";
  return !name.empty() && name.find_first_not_of(kAllowed) == std::string::npos;
}

// Empty when the period is none.
std::string CrontabLine(const Job& job, const JobMoment& moment) {
  const std::string days = DaysOf(job.period, moment.weekday);
  if (days.empty()) return {};
  return std::to_string(moment.minute) + " " + std::to_string(moment.hour) + " " + days + " " +
         job.user + " " + Escaped(job.command) + "\n";
}

// Empty when the array holds anything that cannot be a job.
std::string Render(const Json::Value& jobs, const JobMoment& moment) {
  if (!jobs.isArray()) return {};
  std::string text;
  for (const Json::Value& object : jobs) {
    Job job;
    if (!ReadJob(object, job) || !IsUser(job.user)) return {};
    const std::string line = CrontabLine(job, moment);
    if (line.empty()) return {};
    text += "# " + job.name + "\n" + line;
  }
  return text;
}

}  // namespace

ConfigManager::ConfigManager(std::string name, bool) : name_(std::move(name)) {
  path_ = kFolder + name_;
}

bool ConfigManager::Exist() const { return KLIBCFileExist(path_); }

bool ConfigManager::Save(const Json::Value& jobs) const {
  const std::string text =
      IsFileName(name_) ? Render(jobs, MomentOnThisHost(name_)) : std::string();
  const int error = text.empty() ? EINVAL : kova::platform::ReplaceFile(path_, text, kMode);
  if (error == 0) return true;
  RecordError(error);
  return false;
}

bool ConfigManager::Holds(const Json::Value& jobs) const {
  std::string text;
  return kova::platform::ReadWholeFile(path_, text) && !text.empty() &&
         text == Render(jobs, MomentOnThisHost(name_));
}

JobMoment ConfigManager::Moment() const { return MomentOnThisHost(name_); }

bool ConfigManager::Remove() const {
  if (unlink(path_.c_str()) == 0) return true;
  RecordError(errno);
  return false;
}

}  // namespace KOVA::KOVACrond
