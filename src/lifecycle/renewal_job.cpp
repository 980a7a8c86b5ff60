#include "lifecycle/renewal_job.h"

#include <json/value.h>

#include "base/log.h"
#include "lifecycle/acme_folders.h"
#include "platform/crond.h"

namespace kova {
namespace {

constexpr char kTag[] = "kova-letsencrypt";

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
  if (manager.Save(jobs)) return true;
  LogError(kTag, "Failed to add the renewal job.%s", ErrorTriple().c_str());
  return false;
}

bool RemoveRenewalJob() {
  const auto manager = RenewalJob();
  if (!manager.Exist() || manager.Remove()) return true;
  LogError(kTag, "Failed to remove the renewal job.%s", ErrorTriple().c_str());
  return false;
}

void AddRenewalJobWhenNeeded() {
  if (!ListAcmeFolders().empty()) AddRenewalJob();
}

void RemoveRenewalJobWhenUnused() {
  if (ListAcmeFolders().empty()) RemoveRenewalJob();
}

}  // namespace kova
