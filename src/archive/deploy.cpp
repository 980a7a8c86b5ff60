#include "archive/deploy.h"

#include <chrono>

#include "archive/index.h"
#include "archive/integrity.h"
#include "archive/paths.h"
#include "archive/service_files.h"
#include "archive/service_object.h"
#include "archive/utils.h"
#include "base/file_lock.h"
#include "base/json.h"
#include "base/log.h"
#include "platform/files.h"
#include "platform/process.h"
#include "platform/service.h"
#include "platform/users.h"

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
Status RefreshEverywhere(const Json::Value& object) {
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

Status UpdateIndex(const Move& move, const Json::Value& object) {
  const bool add = move.action.skip_add == 0;
  const bool remove = move.action.skip_remove == 0;
  if (!add && !remove) return {};
  Status usable = add ? EnsureUsable(move.target) : Status();
  if (usable && remove) usable = EnsureUsable(move.source);
  if (!usable) return usable;
  return EditIndex(kUpdateTimeout, [&](Json::Value& info) {
    // In this order: a service that is moved from a certificate to itself is taken off its list.
    if (add) UpdateCertificate(info, move.target, object, ListUpdate::kAppend);
    if (remove) UpdateCertificate(info, move.source, object, ListUpdate::kRemove);
    return IndexEdit::kWrite;
  });
}

// Only a script that could not be run is a failure; what it makes of its work is its own affair.
Status Reload(const Service& service) {
  const std::string script = service.ReloadScript();
  if (!KLIBCFileExist(script)) return {};
  if (KLIBCExecl(script, kKovaExecScript, {service.name}) >= 0) return {};
  Status failed = Status::FailedCall("Failed to", "[" + script + "][" + service.name + "]");
  LogError(kTag, "Failed to [%s][%s].%s", script.c_str(), service.name.c_str(),
           ErrorTriple().c_str());
  LogError(kTag, "Failed to reload [%s][%s].", service.subscriber.c_str(), service.name.c_str());
  return failed;
}

// One service that gets its files and then, as the action says, its place in the index.
struct Delivery {
  const Move& move;
  const Json::Value& object;
  Service service;
  uid_t uid = 0;
  gid_t gid = 0;
};

// `kept` is true when the service has its files already and was only refreshed in the index.
Status ServeFiles(const Delivery& delivery, bool& kept) {
  const Service& service = delivery.service;
  {
    const FileLock lock(kTag, kFilesLockPath, kFilesTimeout);
    if (!lock.Held()) return lock.Outcome();
    FinishInterruptedMove(StagingFolder(service), service.Folder());
  }
  kept = delivery.move.action.action == kActionAdd && HoldsRequiredFiles(service.Folder()) &&
         RefreshEverywhere(delivery.object);
  if (kept) return {};
  const FileLock lock(kTag, kFilesLockPath, kFilesTimeout);
  if (!lock.Held()) return lock.Outcome();
  return InstallServiceFiles(delivery.move.target, service, delivery.uid, delivery.gid);
}

Status FindOwner(Delivery& delivery) {
  const std::string& owner = delivery.service.owner;
  if (KOVAUserGetUGID(owner, &delivery.uid, &delivery.gid) >= 0) return {};
  LogError(kTag, "Failed to KOVAUserGetUGID [%s].%s", owner.c_str(), ErrorTriple().c_str());
  return Status::FailedCall("Failed to KOVAUserGetUGID", "[" + owner + "]");
}

Status Deliver(Delivery& delivery) {
  bool kept = false;
  const Move& move = delivery.move;
  if (Status found = FindOwner(delivery); !found) return found;
  if (Status served = ServeFiles(delivery, kept); !served || kept) return served;
  if (Status updated = UpdateIndex(move, delivery.object); !updated) {
    LogError(kTag, "Failed to update cert info for %s from %s to %s", delivery.service.name.c_str(),
             move.source.c_str(), move.target.c_str());
    return updated;
  }
  return move.action.reload == 0 ? Status() : Reload(delivery.service);
}

Status DeployOne(const Move& move, const Json::Value& object) {
  // Names that would lead out of the services' folders come from a damaged or forged index; such an
  // object is as wrong as one that lacks a member, and fails before anything is touched.
  if (!IsValidServiceObject(object) || !ServiceFrom(object).StaysInItsFolder()) {
    LogError(kTag, "service object is error.");
    return Status::Failed("service object is error.");
  }
  Delivery delivery{move, object, ServiceFrom(object)};
  return Deliver(delivery);
}

Status ReloadRelay() {
  if (KLIBServicectlIsJobRunning(kRelayDaemon, 0) == 0) return {};
  if (KLIBServiceReload(kRelayDaemon) != -1) return {};
  LogError(kTag, "Reload %s failed.", kRelayDaemon);
  return Status::Failed("Reload", kRelayDaemon, "failed");
}

}  // namespace

Status RegisterAndDeploy(const std::string& target, const Json::Value& services,
                         const std::string& source, int action) {
  if (Status usable = EnsureUsable(target); !usable) return usable;
  if (!services.isArray()) return Status::Failed("the list of services is none");
  const CRTActionInfo* row = FindAction(rgCRTActionInfo, action);
  if (row == nullptr) {
    LogError(kTag, "Wrong rgCRTActionInfo.");
    return Status::Failed("Wrong rgCRTActionInfo.");
  }
  const Move move{target, source, *row};
  Status first;
  for (const Json::Value& object : services) {
    if (Status served = DeployOne(move, object); !served && first) first = served;
  }
  if (Status reloaded = ReloadRelay(); !reloaded && first) first = reloaded;
  return first;
}

Status DeployToOwnServices(const std::string& id, bool& has_system_default) {
  Json::Value services;
  if (Status found = EnsureServices(id, services); !found) {
    LogError(kTag, "Failed to get service list of %s", id.c_str());
    return found;
  }
  if (Status deployed = RegisterAndDeploy(id, services, "", kActionRedeploy); !deployed) {
    LogError(kTag, "Failed to deploy cert to services for %s", id.c_str());
    return deployed;
  }
  has_system_default = HasSystemDefault(services);
  return {};
}

Status HandToDefault(const Json::Value& services, int action, const std::string& source) {
  std::string id;
  if (Status read = ReadDefaultCertificate(id); !read) return read;
  if (id.empty()) return Status::Failed("there is no default certificate");
  return RegisterAndDeploy(id, services, source, action);
}

}  // namespace kova::cert_archive
