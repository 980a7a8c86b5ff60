#include "archive/deploy.h"

#include <chrono>
#include <functional>
#include <utility>
#include <vector>

#include "archive/certificate_lock.h"
#include "archive/index.h"
#include "archive/integrity.h"
#include "archive/noted_move.h"
#include "archive/paths.h"
#include "archive/reload_mark.h"
#include "archive/service_files.h"
#include "archive/service_object.h"
#include "archive/utils.h"
#include "base/file_lock.h"
#include "base/json.h"
#include "base/log.h"
#include "platform/files.h"
#include "platform/process.h"
#include "platform/service.h"

namespace kova::cert_archive {
namespace {

// Keeps two of this program's processes from working on the services' folders at a time. It is held
// while one service gets its files and its place in the index, and never while anything is
// reloaded.
constexpr char kFilesLockPath[] = "/run/kova-certificate-deploy.lock";
constexpr std::chrono::seconds kFilesTimeout{180};  // its holder may wait for a certificate's lock

constexpr char kRelayDaemon[] = "kovarelayd";

struct Move {
  const std::string& target;
  std::vector<std::string> sources;  // that it is taken from, as the action says
  const CRTActionInfo* action;

  // As the log has it.
  [[nodiscard]] std::string Source() const { return sources.empty() ? "" : sources.front(); }
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

// A test that heals is told about later: no hook may run while locks are held.
Status RequireUsable(const std::string& id, std::vector<Verdict>& verdicts) {
  verdicts.push_back(TestWithoutReport(id));
  return verdicts.back().integrity == Integrity::kUnusable ? verdicts.back().reason : Status();
}

// In this order: the target before the sources.
Status RequireUsable(const Move& move, bool add, bool remove, std::vector<Verdict>& verdicts) {
  Status usable = add ? RequireUsable(move.target, verdicts) : Status();
  if (!remove) return usable;
  for (const std::string& source : move.sources) {
    if (usable) usable = RequireUsable(source, verdicts);
  }
  return usable;
}

Status UpdateIndex(const Move& move, const Json::Value& object, std::vector<Verdict>& verdicts) {
  const bool add = move.action->skip_add == 0;
  const bool remove = move.action->skip_remove == 0;
  if (!add && !remove) return {};
  if (Status usable = RequireUsable(move, add, remove, verdicts); !usable) return usable;
  return EditIndex(kUpdateTimeout, [&](Json::Value& info) {
    // In this order: a service that is moved from a certificate to itself is taken off its list.
    if (add) UpdateCertificate(info, move.target, object, ListUpdate::kAppend);
    if (!remove) return IndexEdit::kWrite;
    for (const std::string& source : move.sources) {
      UpdateCertificate(info, source, object, ListUpdate::kRemove);
    }
    return IndexEdit::kWrite;
  });
}

// Only a script that could not be run is a failure; what it makes of its work is its own affair,
// and noted for people to see.
Status Reload(const std::string& certificate, const Service& service) {
  const std::string script = service.ReloadScript();
  const int status =
      KLIBCFileExist(script) ? KLIBCExecl(script, kKovaExecScript, {service.name}) : 0;
  if (status >= 0) {
    NoteReload(certificate, service, status);
    return {};
  }
  Status failed = Status::FailedCall("Failed to", "[" + script + "][" + service.name + "]");
  LogError(kTag, "Failed to [%s][%s].%s", script.c_str(), service.name.c_str(),
           ErrorTriple().c_str());
  LogError(kTag, "Failed to reload [%s][%s].", service.subscriber.c_str(), service.name.c_str());
  return failed;
}

// One service that gets its files and then, as the action says, its place in the index. A decision
// that takes the action away leaves the service alone.
using Decision = std::function<Status(const Json::Value& object, Move& move)>;

struct Delivery {
  Move move;
  const Json::Value& object;
  Service service;
  const Decision& decide;  // may be empty; asked under the lock for what the move is
  uid_t uid = 0;
  gid_t gid = 0;
};

Status FailedToSet(const Delivery& delivery, Status why) {
  LogError(kTag, "Failed to set cert [%s] for [%s][%s].", delivery.move.target.c_str(),
           delivery.service.subscriber.c_str(), delivery.service.name.c_str());
  return why;
}

// `kept` is true when the service has its files already and was only refreshed in the index.
Status ServeFiles(const Delivery& delivery, bool& kept) {
  FinishInterruptedMove();
  kept = delivery.move.action->action == kActionAdd &&
         HoldsRequiredFiles(delivery.service.Folder()) && RefreshEverywhere(delivery.object);
  if (kept) return {};
  const CertificateLock certificate(delivery.move.target);
  if (!certificate.Held()) return FailedToSet(delivery, certificate.Outcome());
  if (Status finished = FinishNotedMove(certificate); !finished) {
    return FailedToSet(delivery, finished);
  }
  return InstallServiceFiles(delivery.move.target, delivery.service, delivery.uid, delivery.gid);
}

Status FindOwner(Delivery& delivery) {
  const std::string& owner = delivery.service.owner;
  if (KOVAUserGetUGID(owner, &delivery.uid, &delivery.gid) >= 0) return {};
  LogError(kTag, "Failed to KOVAUserGetUGID [%s].%s", owner.c_str(), ErrorTriple().c_str());
  return Status::FailedCall("Failed to KOVAUserGetUGID", "[" + owner + "]");
}

// Files and index in one go, so that they agree when two processes move one service at a time.
Status Settle(Delivery& delivery, bool& kept, std::vector<Verdict>& verdicts) {
  const FileLock lock(kTag, kFilesLockPath, kFilesTimeout);
  if (!lock.Held()) return FailedToSet(delivery, lock.Outcome());
  if (delivery.decide) {
    Status decided = delivery.decide(delivery.object, delivery.move);
    kept = delivery.move.action == nullptr;
    if (!decided || kept) return decided;
  }
  if (Status served = ServeFiles(delivery, kept); !served || kept) return served;
  Status updated = UpdateIndex(delivery.move, delivery.object, verdicts);
  if (!updated) {
    LogError(kTag, "Failed to update cert info for %s from %s to %s", delivery.service.name.c_str(),
             delivery.move.Source().c_str(), delivery.move.target.c_str());
  }
  return updated;
}

// Hooks and scripts run when the locks are released.
Status Deliver(Delivery& delivery) {
  if (Status found = FindOwner(delivery); !found) return found;
  bool kept = false;
  std::vector<Verdict> verdicts;
  Status settled = Settle(delivery, kept, verdicts);
  for (const Verdict& verdict : verdicts) ReportRecovery(verdict);
  if (!settled || kept) return settled;
  return delivery.move.action->reload == 0 ? Status()
                                           : Reload(delivery.move.target, delivery.service);
}

Status DeployOne(const Move& move, const Json::Value& object, const Decision& decide = {}) {
  // Names that would lead out of the services' folders come from a damaged or forged index; such an
  // object is as wrong as one that lacks a member, and fails before anything is touched.
  if (!IsValidServiceObject(object) || !ServiceFrom(object).StaysInItsFolder()) {
    LogError(kTag, "service object is error.");
    return Status::Failed("service object is error.");
  }
  Delivery delivery{move, object, ServiceFrom(object), decide};
  return Deliver(delivery);
}

// The certificates that list the service: `from` alone when it is named, else all but `target`.
std::vector<std::string> Listing(const Json::Value& info, const Json::Value& object,
                                 const std::string& from, const std::string& target) {
  std::vector<std::string> ids;
  for (const std::string& id : info.getMemberNames()) {
    const bool wanted = from.empty() ? id != target : id == from;
    if (wanted && Lists(info[id], object)) ids.push_back(id);
  }
  return ids;
}

// Those that list the service by now, the target excepted unless it is what is asked for. Nothing
// is to be changed in the index when the target alone lists it.
Status FindSources(const Json::Value& object, const std::string& from, Move& move) {
  Json::Value info;
  if (Status read = ReadIndexObject(info); !read) return read;
  move.sources = Listing(info, object, from, move.target);
  if (!from.empty() && move.sources.empty()) {
    return Status::Failed("certificate [" + from + "] does not list the service any more");
  }
  if (move.sources.empty() && Lists(info[move.target], object)) {
    move.action = &rgCRTActionInfo[kActionRedeploy];
  }
  return {};
}

// Another process may have moved the service since the list was read. An index that cannot be read
// says nothing against it.
Status LeaveIfMoved(const Json::Value& object, Move& move) {
  Json::Value info;
  if (ReadIndexObject(info) && !Lists(Member(info, move.target.c_str()), object)) {
    move.action = nullptr;
  }
  return {};
}

Status ReloadRelay() {
  if (KLIBServicectlIsJobRunning(kRelayDaemon, 0) == 0) return {};
  if (KLIBServiceReload(kRelayDaemon) != -1) return {};
  LogError(kTag, "Reload %s failed.", kRelayDaemon);
  return Status::Failed("Reload", kRelayDaemon, "failed");
}

Status DeployAll(const Move& move, const Json::Value& services, const Decision& decide) {
  Status first;
  for (const Json::Value& object : services) {
    if (Status served = DeployOne(move, object, decide); !served && first) first = served;
  }
  if (Status reloaded = ReloadRelay(); !reloaded && first) first = reloaded;
  return first;
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
  return DeployAll({target, {source}, row}, services, {});
}

void FinishInterruptedDeployment() {
  if (!KLIBCFileExist(kServiceMoveNote)) return;
  const FileLock lock(kTag, kFilesLockPath, kFilesTimeout);
  if (lock.Held()) FinishInterruptedMove();
}

Status RedeployListed(const std::string& target, const Json::Value& services) {
  if (Status usable = EnsureUsable(target); !usable) return usable;
  return DeployAll({target, {}, &rgCRTActionInfo[kActionRedeploy]}, services, LeaveIfMoved);
}

Status TransferService(const std::string& target, const Json::Value& object,
                       const std::string& from) {
  if (Status usable = EnsureUsable(target); !usable) return usable;
  const auto decide = [&from](const Json::Value& service, Move& move) {
    return FindSources(service, from, move);
  };
  Status served = DeployOne({target, {}, &rgCRTActionInfo[kActionMove]}, object, decide);
  Status reloaded = ReloadRelay();
  return served ? reloaded : served;
}

Status DeployToOwnServices(const std::string& id, bool& has_system_default) {
  Json::Value services;
  const bool was_cut_short = IsPlainName(id) && IsMoveNoted(id);
  if (Status found = EnsureServices(id, services); !found) {
    LogError(kTag, "Failed to get service list of %s", id.c_str());
    return found;
  }
  if (Status deployed = RedeployListed(id, services); !deployed) {
    LogError(kTag, "Failed to deploy cert to services for %s", id.c_str());
    return deployed;
  }
  has_system_default = HasSystemDefault(services);
  if (was_cut_short) (void)ForgetMove(CertificateLock(id));  // now its services have the files
  return {};
}

Status HandToDefault(const Json::Value& services, int action, const std::string& source) {
  std::string id;
  if (Status read = ReadDefaultCertificate(id); !read) return read;
  if (id.empty()) return Status::Failed("there is no default certificate");
  return RegisterAndDeploy(id, services, source, action);
}

}  // namespace kova::cert_archive
