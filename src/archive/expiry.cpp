#include <openssl/err.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <utility>

#include "archive/integrity.h"
#include "archive/paths.h"
#include "base/log.h"
#include "crypto/certificate.h"
#include "crypto/pem.h"

namespace kova::cert_archive {
namespace {

constexpr std::int64_t kSecondsPerDay = 86400;

}  // namespace

bool ExpiresWithin(const std::string& path, std::int32_t days) {
  errno = 0;
  const BioPtr file = OpenPem(path);
  if (file == nullptr) {
    LogError(kTag, "Failed to open %s (%s)", path.c_str(), std::strerror(errno));
    ERR_clear_error();
    return false;
  }
  errno = 0;
  X509Ptr certificate = ReadCertificate(*file);
  if (certificate == nullptr) {
    LogError(kTag, "Failed to read %s (%s)", path.c_str(), std::strerror(errno));
    ERR_clear_error();
    return false;
  }
  return ExpiresWithin(Certificate(std::move(certificate)), path, days);
}

bool ExpiresWithin(const Certificate& certificate, const std::string& path, std::int32_t days) {
  const std::int64_t moment = std::time(nullptr) + days * kSecondsPerDay;
  if (certificate.EndsBy(moment)) return true;
  LogDebugPriority(kTag, "%s will not expired at %lld", path.c_str(),
                   static_cast<long long>(moment));
  return false;
}

}  // namespace kova::cert_archive
