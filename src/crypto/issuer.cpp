#include <openssl/err.h>

#include <cerrno>
#include <cstring>

#include "base/log.h"
#include "crypto/certificate.h"
#include "crypto/pem.h"

namespace kova {
namespace {

constexpr char kTag[] = "utils";

// "MESSAGE [PATH]: [WHAT THE LIBRARY SAYS]"; an empty organisation.
std::string Failed(const char* message, const std::string& path, BIO& errors,
                   int line = __builtin_LINE()) {
  LogError({kTag, line}, "%s [%s]: [%s]", message, path.c_str(), PendingErrors(errors).c_str());
  return {};
}

}  // namespace

std::string IssuerOrganization(const std::string& path) {
  ERR_clear_error();  // earlier calls' errors are no reason of this one's
  errno = 0;
  const BioPtr file = OpenPem(path);
  if (file == nullptr) {
    LogError(kTag, "fopen failed. [%s][%s]", std::strerror(errno), path.c_str());
    return {};
  }
  const BioPtr errors = MemoryBio();
  if (errors == nullptr) {
    LogError(kTag, "BIO_new failed.");
    return {};
  }
  const X509Ptr certificate = ReadCertificate(*file);
  if (certificate == nullptr) return Failed("read x509 failed.", path, *errors);
  const X509_NAME* issuer = X509_get_issuer_name(certificate.get());
  if (issuer == nullptr) return Failed("get issuer name failed.", path, *errors);
  const int index = X509_NAME_get_index_by_NID(issuer, NID_organizationName, -1);
  const X509_NAME_ENTRY* entry = index < 0 ? nullptr : X509_NAME_get_entry(issuer, index);
  if (entry == nullptr) return Failed("get x509 issuer entry failed.", path, *errors);
  const ASN1_STRING* data = X509_NAME_ENTRY_get_data(entry);
  if (data == nullptr) return Failed("get x509 issuer entry data failed.", path, *errors);
  return {reinterpret_cast<const char*>(ASN1_STRING_get0_data(data)),
          static_cast<size_t>(ASN1_STRING_length(data))};
}

}  // namespace kova
