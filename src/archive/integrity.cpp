#include "archive/integrity.h"

#include <json/value.h>

#include <cerrno>

#include "archive/certificate_lock.h"
#include "archive/index.h"
#include "archive/noted_move.h"
#include "archive/paths.h"
#include "archive/recovery.h"
#include "base/json.h"
#include "base/log.h"
#include "platform/service.h"

namespace kova::cert_archive {
namespace {

// An id that is no plain name is refused like an unknown one: recovery would write elsewhere.
bool IsInIndex(const Json::Value& info, const std::string& id) {
  return IsPlainName(id) && Member(info, id.c_str()).isObject();
}

Status CheckFolder(const std::string& folder) {
  if (!IsSafeFolder(folder)) {
    LogError(kTag, "Folder not exits [%s]", folder.c_str());
    return Status::Failed("Folder not exits", "[" + folder + "]");
  }
  if (!HoldsRequiredFiles(folder)) {
    LogError(kTag, "Lack of necessary files in cert dir [%s]", folder.c_str());
    return Status::Failed("Lack of necessary files in cert dir", "[" + folder + "]");
  }
  return {};
}

Verdict TestFolder(const std::string& id) {
  const std::string folder = CertificateFolder(id);
  // Most certificates have nothing to be done about them, and need no lock.
  if (Status finished = FinishNotedMove(id); !finished) return {Integrity::kUnusable, finished};
  const Status complete = CheckFolder(folder);
  if (complete && !IsRecoveryNoted(id)) return {Integrity::kUsable, {}};
  const CertificateLock lock(id);
  if (!lock.Held()) return {Integrity::kUnusable, lock.Outcome()};
  return Recover(lock, complete);
}

Verdict TestEntry(const Json::Value& info, const std::string& id) {
  if (IsInIndex(info, id)) return TestFolder(id);
  LogError(kTag, "Invalid cert id: [%s]", id.c_str());
  return {Integrity::kUnusable, Status::Failed("Invalid cert id:", "[" + id + "]")};
}

Verdict Reported(Verdict verdict) {
  ReportRecovery(verdict);
  return verdict;
}

}  // namespace

void ReportRecovery(const Verdict& verdict) {
  if (!verdict.unreported) return;
  if (KOVASysNotifySendNotifiction(kBrokenNotification, nullptr) == 0) return;
  LogError(kTag, "Failed to send notification for certificate broken");
}

Verdict TestWithoutReport(const std::string& id) {
  Json::Value info;
  if (Status read = ReadIndex(info); !read) return {Integrity::kUnusable, read};
  return TestEntry(info, id);
}

Verdict TestIntegrity(const Json::Value& info, const std::string& id) {
  return Reported(TestEntry(info, id));
}

Verdict TestIntegrity(const std::string& id) { return Reported(TestWithoutReport(id)); }

Status EnsureUsable(const std::string& id) {
  const Verdict verdict = TestIntegrity(id);
  return verdict.integrity == Integrity::kUnusable ? verdict.reason : Status();
}

Status EnsureServices(const std::string& id, Json::Value& services) {
  if (Status usable = EnsureUsable(id); !usable) {
    (void)BrokenIndex(kTag);
    return usable;
  }
  Json::Value info;
  if (Status read = ReadIndex(info); !read) return read;
  const Json::Value& listed = Member(Member(info, id.c_str()), "services");
  if (!listed.isArray()) return BrokenIndex(kTag);
  services = listed;
  return {};
}

}  // namespace kova::cert_archive
