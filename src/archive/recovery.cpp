#include "archive/recovery.h"

#include <json/value.h>
#include <unistd.h>

#include "archive/paths.h"
#include "base/files.h"
#include "base/json.h"
#include "base/log.h"
#include "platform/file_writer.h"
#include "platform/files.h"
#include "self_signed/default_set.h"

namespace kova::cert_archive {
namespace {

constexpr mode_t kMarkerMode = 0600;
constexpr mode_t kNoteMode = 0600;
constexpr char kNoteEnd[] = ".recovery";

// Beside the folder, which may not be there.
std::string NotePath(const std::string& id) {
  return std::string(kArchiveRoot) + "/." + id + kNoteEnd;
}

void NoteRecovery(const std::string& id) {
  // Only a run that is killed as well would need it.
  (void)platform::ReplaceFile(NotePath(id), "", kNoteMode);
}

void ForgetRecovery(const std::string& id) { (void)unlink(NotePath(id).c_str()); }

Status MarkBroken(const std::string& folder) {
  Json::Value marker(Json::objectValue);
  marker["is_broken"] = true;
  const std::string path = folder + "/" + kBrokenMarker;
  const int error = platform::ReplaceFile(path, JsonStyledText(marker), kMarkerMode);
  if (error == 0) return {};
  LogError(kTag, "Failed to write cert info [%d]", error);
  return Status::Failed("Failed to write", path, ErrorWords(error));
}

// A default set's chain is its certificate alone; a renewal may have come since.
bool IsDefaultSet(const std::string& folder) {
  return KLIBCFileExist(folder + "/kova-ca-cert.pem") &&
         ReadTextFile(folder + "/cert.pem") == ReadTextFile(folder + "/fullchain.pem");
}

// The chain is what is made last: half of one is a killed tool's.
bool HasWholeChain(const std::string& folder) {
  const std::string certificate = ReadTextFile(folder + "/cert.pem");
  return ReadTextFile(folder + "/fullchain.pem").find(certificate) != std::string::npos;
}

Status Generate(const std::string& id, const mkcert::GenerationLock& lock) {
  Status made = mkcert::GenerateDefaultSet(CertificateFolder(id), lock);
  if (made) return made;
  LogError(kTag, "Failed to generate default certificate to recover for [%s]", id.c_str());
  return Status::Failed("Failed to generate default certificate to recover for", "[" + id + "]",
                        made.Text());
}

Verdict MarkAsRecovered(const std::string& id, const Status& reason) {
  if (Status marked = MarkBroken(CertificateFolder(id)); !marked) {
    return {Integrity::kUnusable, marked};
  }
  ForgetRecovery(id);
  return {Integrity::kRecovered, reason, /*unreported=*/true};
}

bool IsComplete(const std::string& id) {
  const std::string folder = CertificateFolder(id);
  return IsCanonicalFolder(folder) && HoldsRequiredFiles(folder) &&
         (!IsRecoveryNoted(id) || HasWholeChain(folder));
}

// What a killed recovery completed, or what came in its place.
Verdict TakeComplete(const std::string& id, const Status& reason) {
  const std::string folder = CertificateFolder(id);
  if (IsRecoveryNoted(id) && IsDefaultSet(folder)) {
    (void)KLIBCFileTouch(folder + "/" + kDefaultMarker);
    return MarkAsRecovered(id, reason);
  }
  ForgetRecovery(id);
  // Another process may have recovered it while this one waited.
  return {reason ? Integrity::kUsable : Integrity::kRecovered, reason};
}

}  // namespace

bool IsRecoveryNoted(const std::string& id) { return KLIBCFileExist(NotePath(id)); }

Verdict Recover(const CertificateLock& certificate, const Status& reason) {
  const std::string& id = certificate.Id();
  if (!reason) LogError(kTag, "%s is incomplete, start recovering", id.c_str());
  const mkcert::GenerationLock lock;
  if (lock.Held() && IsComplete(id)) return TakeComplete(id, reason);
  NoteRecovery(id);
  if (Status made = Generate(id, lock); !made) return {Integrity::kUnusable, made};
  return MarkAsRecovered(id, reason);
}

}  // namespace kova::cert_archive
