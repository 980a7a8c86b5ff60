#include "archive/certificate_lock.h"

#include "archive/paths.h"
#include "platform/files.h"

namespace kova::cert_archive {
namespace {

constexpr mode_t kFolderMode = 0700;

std::string LockFile(const std::string& id) {
  // A folder that cannot be made shows in the lock that cannot be had.
  (void)KOVAFSMkdirP(kCertificateLockFolder, 0, 1, 0, 0, kFolderMode);
  return std::string(kCertificateLockFolder) + "/" + id;
}

}  // namespace

CertificateLock::CertificateLock(const std::string& id)
    : id_(id), lock_(kTag, LockFile(id), kCertificateTimeout) {}

}  // namespace kova::cert_archive
