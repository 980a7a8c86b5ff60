#include "cli/renewal_job.h"

#include <json/value.h>

#include "platform/crond.h"

namespace kova {
namespace {

KOVA::KOVACrond::ConfigManager RenewalJob() { return {"kova-letsencrypt", false}; }

}  // namespace

bool AddRenewalJob() {
  const auto manager = RenewalJob();
  if (manager.Exist()) return true;
  Json::Value job(Json::objectValue);
  job["name"] = "kova-letsencrypt - renew";
  job["cmd"] = "/usr/kova/sbin/kova-letsencrypt renew-all";
  job["user"] = "root";
  job["period"] = "weekly";
  Json::Value jobs(Json::arrayValue);
  jobs.append(job);
  return manager.Save(jobs);
}

bool RemoveRenewalJob() {
  const auto manager = RenewalJob();
  return !manager.Exist() || manager.Remove();
}

}  // namespace kova
