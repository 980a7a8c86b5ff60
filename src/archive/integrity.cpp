#include "archive/integrity.h"

#include <json/value.h>

#include <cerrno>

#include "archive/index.h"
#include "archive/paths.h"
#include "base/json.h"
#include "base/log.h"
#include "platform/file_writer.h"
#include "platform/service.h"
#include "self_signed/default_set.h"

namespace kova::cert_archive {
namespace {

constexpr mode_t kMarkerMode = 0600;

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

Status MarkBroken(const std::string& folder) {
  Json::Value marker(Json::objectValue);
  marker["is_broken"] = true;
  const std::string path = folder + "/" + kBrokenMarker;
  const int error = platform::ReplaceFile(path, JsonStyledText(marker), kMarkerMode);
  if (error == 0) return {};
  LogError(kTag, "Failed to write cert info [%d]", error);
  return Status::Failed("Failed to write", path, ErrorWords(error));
}

void NotifyBroken() {
  if (KOVASysNotifySendNotifiction(kBrokenNotification, nullptr) == 0) return;
  LogError(kTag, "Failed to send notification for certificate broken");
}

Status Recover(const std::string& id, const std::string& folder) {
  LogError(kTag, "%s is incomplete, start recovering", id.c_str());
  const mkcert::GenerationLock lock;
  // Another process may have done it while this one waited.
  if (lock.Held() && IsCanonicalFolder(folder) && HoldsRequiredFiles(folder)) return {};
  if (Status made = mkcert::GenerateDefaultSet(folder, lock); !made) {
    LogError(kTag, "Failed to generate default certificate to recover for [%s]", id.c_str());
    return Status::Failed("Failed to generate default certificate to recover for", "[" + id + "]",
                          made.Text());
  }
  if (Status marked = MarkBroken(folder); !marked) return marked;
  NotifyBroken();
  return {};
}

}  // namespace

Verdict TestIntegrity(const Json::Value& info, const std::string& id) {
  if (!IsInIndex(info, id)) {
    LogError(kTag, "Invalid cert id: [%s]", id.c_str());
    return {Integrity::kUnusable, Status::Failed("Invalid cert id:", "[" + id + "]")};
  }
  const std::string folder = CertificateFolder(id);
  const Status complete = CheckFolder(folder);
  if (complete) return {Integrity::kUsable, {}};
  const Status recovered = Recover(id, folder);
  if (!recovered) return {Integrity::kUnusable, recovered};
  return {Integrity::kRecovered, complete};
}

Verdict TestIntegrity(const std::string& id) {
  Json::Value info;
  if (Status read = ReadIndex(info); !read) return {Integrity::kUnusable, read};
  return TestIntegrity(info, id);
}

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
