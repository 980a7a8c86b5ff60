#include "archive/service_files.h"

#include "archive/paths.h"
#include "archive/utils.h"
#include "base/log.h"
#include "platform/files.h"
#include "self_signed/log_tag.h"

namespace kova::cert_archive {
namespace {

constexpr mode_t kFolderMode = 0755;
constexpr const char* kOptionalFiles[] = {"chain.pem", "kova-ca-cert.pem"};

bool CopyAll(const std::string& archive, const std::string& staging, uid_t uid, gid_t gid) {
  for (const char* name : kRequiredFiles) {
    if (!CopyOneFile(archive, staging, name, uid, gid)) return false;
  }
  for (const char* name : kOptionalFiles) {
    if (!KLIBCFileExist(archive + "/" + name)) continue;
    if (!CopyOneFile(archive, staging, name, uid, gid)) return false;
  }
  return true;
}

bool Install(const std::string& archive, const std::string& folder, const std::string& staging,
             uid_t uid, gid_t gid) {
  if (!KLIBCFileCheckDir(archive)) {
    LogError(kTag, "[%s] doesn't exist.%s", archive.c_str(), ErrorTriple().c_str());
    return false;
  }
  if (!KLIBCFileCheckDir(folder) && KOVAFSMkdirP(folder, 0, 1, 0, 0, kFolderMode) < 0) {
    LogError(kTag, "Failed to create %s", folder.c_str());
    return false;
  }
  if (!CleanDirectory(staging, kFolderMode)) {
    LogError(kTag, "Failed to clean %s", staging.c_str());
    return false;
  }
  if (!CopyAll(archive, staging, uid, gid)) {
    LogError(kTag, "Failed to copy cert files from %s to %s", archive.c_str(), staging.c_str());
    return false;
  }
  if (!MoveDirectory(staging, folder)) {
    LogError(kTag, "Failed to move %s to %s", staging.c_str(), folder.c_str());
    return false;
  }
  return true;
}

}  // namespace

std::string StagingFolder(const Service& service) { return service.Folder() + ".temp"; }

bool InstallServiceFiles(const std::string& id, const Service& service, uid_t uid, gid_t gid) {
  const std::string staging = StagingFolder(service);
  if (Install(CertificateFolder(id), service.Folder(), staging, uid, gid)) return true;
  if (!RemoveDirectory(staging)) LogError(kTag, "Failed to remove %s", staging.c_str());
  LogError(kTag, "Failed to set cert [%s] for [%s][%s].", id.c_str(), service.subscriber.c_str(),
           service.name.c_str());
  return false;
}

}  // namespace kova::cert_archive
