#include "archive/expiry.h"

#include <openssl/err.h>
#include <openssl/x509.h>

#include <cerrno>
#include <cstring>
#include <ctime>

#include "base/log.h"
#include "crypto/x509_file.h"
#include "self_signed/log_tag.h"

namespace kova::cert_archive {
namespace {

constexpr std::int64_t kSecondsPerDay = 86400;

}  // namespace

bool ExpiresWithin(const std::string& path, std::int32_t days) {
  const std::int64_t moment = std::time(nullptr) + days * kSecondsPerDay;
  errno = 0;
  const BioPtr file(BIO_new_file(path.c_str(), "re"));
  if (file == nullptr) {
    LogError(kTag, "Failed to open %s (%s)", path.c_str(), std::strerror(errno));
    ERR_clear_error();
    return false;
  }
  errno = 0;
  const CertificatePtr certificate = ReadCertificate(*file);
  if (certificate == nullptr) {
    LogError(kTag, "Failed to read %s (%s)", path.c_str(), std::strerror(errno));
    ERR_clear_error();
    return false;
  }
  std::time_t limit = moment;
  if (X509_cmp_time(X509_get0_notAfter(certificate.get()), &limit) < 0) return true;
  LogDebugPriority(kTag, "%s will not expired at %lld", path.c_str(),
                   static_cast<long long>(moment));
  return false;
}

}  // namespace kova::cert_archive
