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
#include "self_signed/log_tag.h"

namespace kova::cert_archive {
namespace {

constexpr mode_t kMarkerMode = 0600;

// An id that is no plain name is refused like an unknown one: recovery would write elsewhere.
bool IsInIndex(const Json::Value& info, const std::string& id) {
  return IsPlainName(id) && Member(info, id.c_str()).isObject();
}

bool IsComplete(const std::string& folder) {
  if (!IsSafeFolder(folder)) {
    LogError(kTag, "Folder not exits [%s]", folder.c_str());
    return false;
  }
  if (!HoldsRequiredFiles(folder)) {
    LogError(kTag, "Lack of necessary files in cert dir [%s]", folder.c_str());
    return false;
  }
  return true;
}

bool MarkBroken(const std::string& folder) {
  Json::Value marker(Json::objectValue);
  marker["is_broken"] = true;
  const int error =
      platform::ReplaceFile(folder + "/" + kBrokenMarker, JsonStyledText(marker), kMarkerMode);
  if (error == 0) return true;
  LogError(kTag, "Failed to write cert info [%d]", error);
  return false;
}

Integrity Recover(const std::string& id, const std::string& folder) {
  LogError(kTag, "%s is incomplete, start recovering", id.c_str());
  const mkcert::GenerationLock lock;
  // Another process may have done it while this one waited.
  if (lock.Held() && IsCanonicalFolder(folder) && HoldsRequiredFiles(folder)) {
    return Integrity::kRecovered;
  }
  if (mkcert::GenerateDefaultSet(folder, lock) != 0) {
    LogError(kTag, "Failed to generate default certificate to recover for [%s]", id.c_str());
    return Integrity::kUnusable;
  }
  if (!MarkBroken(folder)) return Integrity::kUnusable;
  if (KOVASysNotifySendNotifiction(kBrokenNotification, nullptr) != 0) {
    LogError(kTag, "Failed to send notification for certificate broken");
  }
  return Integrity::kRecovered;
}

}  // namespace

Integrity TestIntegrity(const std::string& id) {
  Json::Value info;
  if (!ReadIndex(info)) return Integrity::kUnusable;
  if (!IsInIndex(info, id)) {
    LogError(kTag, "Invalid cert id: [%s]", id.c_str());
    return Integrity::kUnusable;
  }
  const std::string folder = CertificateFolder(id);
  if (IsComplete(folder)) return Integrity::kUsable;
  return Recover(id, folder);
}

}  // namespace kova::cert_archive
