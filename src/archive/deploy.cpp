#include "archive/deploy.h"

#include <chrono>

#include "archive/index.h"
#include "archive/integrity.h"
#include "archive/paths.h"
#include "archive/service_files.h"
#include "archive/service_object.h"
#include "archive/services.h"
#include "archive/utils.h"
#include "base/file_lock.h"
#include "base/json.h"
#include "base/log.h"
#include "platform/files.h"
#include "platform/process.h"
#include "platform/service.h"
#include "platform/users.h"
#include "self_signed/log_tag.h"

namespace kova::cert_archive {
namespace {

// Keeps two of this program's processes from working on one service's folder at a time. It is held
// for the copying of one service only, and never together with the index lock.
constexpr char kFilesLockPath[] = "/run/kova-certificate-deploy.lock";
constexpr std::chrono::seconds kFilesTimeout{60};

constexpr char kRelayDaemon[] = "kovarelayd";

struct Move {
  const std::string& target;
  const std::string& source;
  const CRTActionInfo& action;
};

// Replaces the object wherever the index lists the service.
bool RefreshEverywhere(const Json::Value& object) {
  return EditIndex(kRefreshTimeout, [&](Json::Value& info) {
    for (const std::string& id : info.getMemberNames()) {
      Json::Value& certificate = info[id];
      if (!Member(certificate, "services").isArray()) continue;
      UpdateServiceList(certificate["services"], object, ListUpdate::kRefresh);
    }
    return IndexEdit::kWrite;
  });
}

// A certificate that cannot list services is logged and passed over, which is no failure.
void UpdateCertificate(Json::Value& info, const std::string& id, const Json::Value& object,
                       ListUpdate update) {
  if (Member(Member(info, id.c_str()), "services").isArray()) {
    UpdateServiceList(info[id]["services"], object, update);
  } else {
    LogError(kTag, "Broken [%s][%s].%s", kIndexPath, id.c_str(), ErrorTriple().c_str());
  }
}

bool UpdateIndex(const Move& move, const Json::Value& object) {
  const bool add = move.action.skip_add == 0;
  const bool remove = move.action.skip_remove == 0;
  if (!add && !remove) return true;
  if (add && !IsUsable(move.target)) return false;
  if (remove && !IsUsable(move.source)) return false;
  return EditIndex(kUpdateTimeout, [&](Json::Value& info) {
    // In this order: a service that is moved from a certificate to itself is taken off its list.
    if (add) UpdateCertificate(info, move.target, object, ListUpdate::kAppend);
    if (remove) UpdateCertificate(info, move.source, object, ListUpdate::kRemove);
    return IndexEdit::kWrite;
  });
}

// Only a script that could not be run is a failure; what it makes of its work is its own affair.
bool Reload(const Service& service) {
  const std::string script = service.ReloadScript();
  if (!KLIBCFileExist(script)) return true;
  if (KLIBCExecl(script, kKovaExecScript, {service.name}) >= 0) return true;
  LogError(kTag, "Failed to [%s][%s].%s", script.c_str(), service.name.c_str(),
           ErrorTriple().c_str());
  LogError(kTag, "Failed to reload [%s][%s].", service.subscriber.c_str(), service.name.c_str());
  return false;
}

enum class Files { kInstalled, kKept, kFailed };

Files ServeFiles(const Move& move, const Json::Value& object, const Service& service, uid_t uid,
                 gid_t gid) {
  {
    const FileLock lock(kTag, kFilesLockPath, kFilesTimeout);
    if (!lock.Held()) return Files::kFailed;
    FinishInterruptedMove(StagingFolder(service), service.Folder());
  }
  if (move.action.action == kActionAdd && HoldsRequiredFiles(service.Folder()) &&
      RefreshEverywhere(object)) {
    return Files::kKept;
  }
  const FileLock lock(kTag, kFilesLockPath, kFilesTimeout);
  if (!lock.Held()) return Files::kFailed;
  return InstallServiceFiles(move.target, service, uid, gid) ? Files::kInstalled : Files::kFailed;
}

bool DeployOne(const Move& move, const Json::Value& object) {
  // Names that would lead out of the services' folders come from a damaged or forged index; such an
  // object is as wrong as one that lacks a member, and fails before anything is touched.
  if (!IsValidServiceObject(object) || !ServiceFrom(object).StaysInItsFolder()) {
    LogError(kTag, "service object is error.");
    return false;
  }
  const Service service = ServiceFrom(object);
  uid_t uid = 0;
  gid_t gid = 0;
  if (KOVAUserGetUGID(service.owner, &uid, &gid) < 0) {
    LogError(kTag, "Failed to KOVAUserGetUGID [%s].%s", service.owner.c_str(),
             ErrorTriple().c_str());
    return false;
  }
  const Files files = ServeFiles(move, object, service, uid, gid);
  if (files != Files::kInstalled) return files == Files::kKept;
  if (!UpdateIndex(move, object)) {
    LogError(kTag, "Failed to update cert info for %s from %s to %s", service.name.c_str(),
             move.source.c_str(), move.target.c_str());
    return false;
  }
  return move.action.reload == 0 || Reload(service);
}

bool ReloadRelay() {
  if (KLIBServicectlIsJobRunning(kRelayDaemon, 0) == 0) return true;
  if (KLIBServiceReload(kRelayDaemon) != -1) return true;
  LogError(kTag, "Reload %s failed.", kRelayDaemon);
  return false;
}

}  // namespace

bool RegisterAndDeploy(const std::string& target, const Json::Value& services,
                       const std::string& source, int action) {
  if (!IsUsable(target) || !services.isArray()) return false;
  const CRTActionInfo* row = FindAction(rgCRTActionInfo, action);
  if (row == nullptr) {
    LogError(kTag, "Wrong rgCRTActionInfo.");
    return false;
  }
  const Move move{target, source, *row};
  bool all_served = true;
  for (const Json::Value& object : services) {
    if (!DeployOne(move, object)) all_served = false;
  }
  return ReloadRelay() && all_served;
}

bool DeployToOwnServices(const std::string& id, bool& has_system_default) {
  Json::Value services;
  if (!GetServices(id, services)) {
    LogError(kTag, "Failed to get service list of %s", id.c_str());
    return false;
  }
  if (!RegisterAndDeploy(id, services, "", kActionRedeploy)) {
    LogError(kTag, "Failed to deploy cert to services for %s", id.c_str());
    return false;
  }
  has_system_default = HasSystemDefault(services);
  return true;
}

bool HandToDefault(const Json::Value& services, int action, const std::string& source) {
  const std::string id = DefaultCertificateId();
  return !id.empty() && RegisterAndDeploy(id, services, source, action);
}

}  // namespace kova::cert_archive
