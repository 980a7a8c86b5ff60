#include "lifecycle/renewal_job.h"

#include <json/value.h>

#include <algorithm>
#include <array>
#include <string>

#include "archive/index.h"
#include "base/log.h"
#include "lifecycle/acme_folders.h"
#include "platform/crond.h"

namespace kova {
namespace {

constexpr char kTag[] = "kova-letsencrypt";
constexpr std::array kPeriods = {"daily", "weekly", "monthly"};
constexpr char kDefaultPeriod[] = "weekly";

KOVA::KOVACrond::ConfigManager RenewalJob() { return {"kova-letsencrypt", false}; }

bool IsPeriod(const std::string& text) {
  return std::find(kPeriods.begin(), kPeriods.end(), text) != kPeriods.end();
}

std::string PeriodOf(const RenewalSettings& settings) {
  std::string period = settings.cron_period.value_or(kDefaultPeriod);
  if (IsPeriod(period)) return period;
  LogError(kTag, "Unknown cronperiod [%s], the renewal job runs weekly.",
           OnOneLine(period).c_str());
  return kDefaultPeriod;
}

Json::Value JobOf(const std::string& period) {
  Json::Value job(Json::objectValue);
  job["name"] = "kova-letsencrypt - renew";
  job["cmd"] = "/usr/kova/sbin/kova-letsencrypt renew-all";
  job["user"] = "root";
  job["period"] = period;
  Json::Value jobs(Json::arrayValue);
  jobs.append(job);
  return jobs;
}

bool Save(const std::string& period) {
  if (RenewalJob().Save(JobOf(period))) return true;
  LogError(kTag, "Failed to add the renewal job.%s", ErrorTriple().c_str());
  return false;
}

}  // namespace

bool AddRenewalJob(const RenewalSettings& settings) {
  if (!RenewalJob().Exist()) return Save(PeriodOf(settings));
  CorrectRenewalJob(settings);
  return true;
}

void CorrectRenewalJob(const RenewalSettings& settings) {
  if (!settings.cron_period || !RenewalJob().Exist()) return;
  const std::string wanted = PeriodOf(settings);
  for (const char* period : kPeriods) {
    if (period != wanted && RenewalJob().Holds(JobOf(period))) {
      (void)Save(wanted);
      return;
    }
  }
}

std::string StandingPeriod() {
  for (const char* period : kPeriods) {
    if (RenewalJob().Holds(JobOf(period))) return period;
  }
  return {};
}

bool RemoveRenewalJob() {
  const auto manager = RenewalJob();
  if (!manager.Exist() || manager.Remove()) return true;
  LogError(kTag, "Failed to remove the renewal job.%s", ErrorTriple().c_str());
  return false;
}

void AddRenewalJobWhenNeeded(const RenewalSettings& settings) {
  if (!ListAcmeFolders().empty()) AddRenewalJob(settings);
}

void RemoveRenewalJobWhenUnused() {
  // Whoever enters a certificate now finds no job afterwards, and adds it.
  const cert_archive::IndexLock lock(cert_archive::kUpdateTimeout);
  if (ListAcmeFolders().empty()) RemoveRenewalJob();
}

}  // namespace kova
