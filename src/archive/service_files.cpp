#include "archive/service_files.h"

#include "archive/paths.h"
#include "archive/utils.h"
#include "base/log.h"
#include "crypto/secret.h"
#include "platform/files.h"

namespace kova::cert_archive {
namespace {

constexpr mode_t kFolderMode = 0755;
constexpr const char* kOptionalFiles[] = {"chain.pem", "kova-ca-cert.pem"};

Status CopyAll(const std::string& archive, const std::string& staging, uid_t uid, gid_t gid) {
  for (const char* name : kRequiredFiles) {
    if (Status copied = CopyOneFile(archive, staging, name, uid, gid); !copied) return copied;
  }
  for (const char* name : kOptionalFiles) {
    if (!KLIBCFileExist(archive + "/" + name)) continue;
    if (Status copied = CopyOneFile(archive, staging, name, uid, gid); !copied) return copied;
  }
  return {};
}

Status RequireFolders(const std::string& archive, const std::string& folder) {
  if (!KLIBCFileCheckDir(archive)) {
    LogError(kTag, "[%s] doesn't exist.%s", archive.c_str(), ErrorTriple().c_str());
    return Status::FailedCall("[" + archive + "] doesn't exist", "");
  }
  if (!KLIBCFileCheckDir(folder) && KOVAFSMkdirP(folder, 0, 1, 0, 0, kFolderMode) < 0) {
    LogError(kTag, "Failed to create %s", folder.c_str());
    return Status::FailedCall("Failed to create", folder);
  }
  return {};
}

Status Install(const std::string& archive, const std::string& folder, const std::string& staging,
               uid_t uid, gid_t gid) {
  if (Status there = RequireFolders(archive, folder); !there) return there;
  if (Status cleaned = CleanDirectory(staging, kFolderMode); !cleaned) {
    LogError(kTag, "Failed to clean %s", staging.c_str());
    return cleaned;
  }
  if (Status copied = CopyAll(archive, staging, uid, gid); !copied) {
    LogError(kTag, "Failed to copy cert files from %s to %s", archive.c_str(), staging.c_str());
    return copied;
  }
  Status moved = ReplaceNoted(staging, folder);
  if (!moved) LogError(kTag, "Failed to move %s to %s", staging.c_str(), folder.c_str());
  return moved;
}

// True when the file is the same in both folders, or in neither and need not be.
bool IsSameFile(const std::string& left, const std::string& right, const std::string& name,
                bool required) {
  SecretText ours;
  SecretText theirs;
  const bool have_ours = platform::ReadWholeFile(left + "/" + name, ours.text);
  const bool have_theirs = platform::ReadWholeFile(right + "/" + name, theirs.text);
  if (!have_ours || !have_theirs) return !required && have_ours == have_theirs;
  return ours.text == theirs.text;
}

}  // namespace

std::string StagingFolder(const Service& service) { return service.Folder() + ".temp"; }

Status InstallServiceFiles(const std::string& id, const Service& service, uid_t uid, gid_t gid) {
  const std::string staging = StagingFolder(service);
  Status installed = Install(CertificateFolder(id), service.Folder(), staging, uid, gid);
  if (installed) return {};
  if (!RemoveDirectory(staging)) LogError(kTag, "Failed to remove %s", staging.c_str());
  LogError(kTag, "Failed to set cert [%s] for [%s][%s].", id.c_str(), service.subscriber.c_str(),
           service.name.c_str());
  return installed;
}

std::string DifferingServiceFile(const std::string& id, const Service& service) {
  const std::string archive = CertificateFolder(id);
  const std::string folder = service.Folder();
  for (const char* name : kRequiredFiles) {
    if (!IsSameFile(archive, folder, name, true)) return name;
  }
  for (const char* name : kOptionalFiles) {
    if (!IsSameFile(archive, folder, name, false)) return name;
  }
  return {};
}

}  // namespace kova::cert_archive
