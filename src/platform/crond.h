// Jobs of the system's cron, one file /etc/cron.d/NAME each.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>

namespace kova::platform {

// When a host's job runs: stable on one host, spread over a fleet.
struct JobMoment {
  uint64_t minute;   // 0 to 59
  uint64_t hour;     // 0 to 23
  uint64_t weekday;  // 0 (Sunday) to 6
};

// The moment of that job on the host of that id.
JobMoment MomentOfJob(const std::string& host, const std::string& job);

}  // namespace kova::platform

namespace KOVA::KOVACrond {

class ConfigManager {
 public:
  ConfigManager(std::string name, bool flag);

  // True when a job of that name is configured.
  [[nodiscard]] bool Exist() const;

  // Writes an array of objects with strings "name", "cmd", "user" and "period" ("daily", "weekly",
  // "monthly": on the first) as the job, each as a comment line and a crontab line. Minute, hour
  // and weekday are the host's own, stable and spread over a fleet; all objects of one job share
  // them. False, with nothing written, when there is no object or one is not of that shape (a line
  // break, an unknown user), when cron would ignore the job's name, or the file cannot be written.
  [[nodiscard]] bool Save(const Json::Value& jobs) const;

  // True when the job stands exactly as Save would write that array.
  [[nodiscard]] bool Holds(const Json::Value& jobs) const;

  // When a job of that name is run: the host's own moment, of which a daily job has no weekday and
  // a monthly one is run on the first.
  [[nodiscard]] kova::platform::JobMoment Moment() const;

  // Deletes the job. False when that failed.
  [[nodiscard]] bool Remove() const;

 private:
  std::string name_;
  std::string path_;
};

}  // namespace KOVA::KOVACrond
