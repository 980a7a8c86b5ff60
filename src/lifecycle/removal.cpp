#include "lifecycle/removal.h"

#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <vector>

#include "archive/paths.h"
#include "archive/utils.h"
#include "base/files.h"
#include "base/json.h"
#include "lifecycle/renewal_history.h"
#include "platform/file_writer.h"
#include "platform/files.h"

namespace kova {
namespace {

using cert_archive::CertificateLock;
using cert_archive::IndexLock;

constexpr char kNoteEnd[] = ".removed";
constexpr mode_t kNoteMode = 0600;

std::string NotePath(const std::string& id) {
  return std::string(cert_archive::kArchiveRoot) + "/." + id + kNoteEnd;
}

bool FolderExists(const std::string& folder) {
  std::error_code error;
  return std::filesystem::exists(std::filesystem::symlink_status(folder, error));
}

std::string IdOfNote(const std::string& path) {
  const std::string name = std::filesystem::path(path).filename();
  return name.substr(1, name.size() - std::string(kNoteEnd).size() - 1);
}

void FinishOrForget(const std::string& id) {
  const CertificateLock certificate(id);
  const IndexLock index(cert_archive::kUpdateTimeout);
  if (!certificate.Held() || !index.Held()) return;
  Json::Value info;
  if (!cert_archive::ReadIndexObject(info)) return;  // nobody can tell
  if (HasMember(info, id.c_str())) {
    ForgetRemoval(id);
  } else {
    (void)FinishRemoval(certificate, index);
  }
}

}  // namespace

void NoteRemoval(const std::string& id) {
  // Only a run that is killed as well would need it: a full disk keeps no certificate from its end.
  (void)platform::ReplaceFile(NotePath(id), "", kNoteMode);
}

void ForgetRemoval(const std::string& id) { (void)unlink(NotePath(id).c_str()); }

bool WasRemovalCutShort(const IndexLock& index, const std::string& id) {
  if (!index.Held() || !KLIBCFileExist(NotePath(id))) return false;
  Json::Value info;
  return cert_archive::ReadIndexObject(info) && !HasMember(info, id.c_str());
}

Status FinishRemoval(const CertificateLock& certificate, const IndexLock& index) {
  if (!certificate.Held()) return certificate.Outcome();
  if (!index.Held()) return index.Outcome();
  const std::string folder = cert_archive::CertificateFolder(certificate.Id());
  if (FolderExists(folder)) {
    if (Status removed = cert_archive::RemoveDirectory(folder); !removed) return removed;
  }
  RemoveRenewalHistory(certificate.Id());
  ForgetRemoval(certificate.Id());
  return {};
}

void FinishRemovals() {
  std::vector<std::string> notes;
  const std::string pattern = std::string(cert_archive::kArchiveRoot) + "/.?*" + kNoteEnd;
  if (!ListByPattern(pattern, notes)) return;
  for (const std::string& note : notes) {
    if (const std::string id = IdOfNote(note); cert_archive::IsPlainName(id)) FinishOrForget(id);
  }
}

}  // namespace kova
