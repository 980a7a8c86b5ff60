#include "crypto/issuer.h"

#include <openssl/err.h>
#include <openssl/pem.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "base/log.h"
#include "crypto/openssl_ptr.h"

namespace kova {
namespace {

constexpr char kTag[] = "utils";

struct FileClose {
  void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};
using FilePtr = std::unique_ptr<std::FILE, FileClose>;

// OpenSSL's pending errors as text.
std::string PendingErrors(BIO& bio) {
  ERR_print_errors(&bio);
  char* text = nullptr;
  const long length = BIO_get_mem_data(&bio, &text);
  return length > 0 ? std::string(text, static_cast<size_t>(length)) : std::string();
}

}  // namespace

std::string IssuerOrganization(const std::string& path) {
  errno = 0;
  const FilePtr file(std::fopen(path.c_str(), "re"));
  if (!file) {
    LogError(kTag, "fopen failed. [%s][%s]", std::strerror(errno), path.c_str());
    return {};
  }
  const BioPtr errors(BIO_new(BIO_s_mem()));
  if (!errors) {
    LogError(kTag, "BIO_new failed.");
    return {};
  }
  const X509Ptr certificate(PEM_read_X509(file.get(), nullptr, nullptr, nullptr));
  if (!certificate) {
    LogError(kTag, "read x509 failed. [%s]: [%s]", path.c_str(), PendingErrors(*errors).c_str());
    return {};
  }
  const X509_NAME* issuer = X509_get_issuer_name(certificate.get());
  if (issuer == nullptr) {
    LogError(kTag, "get issuer name failed. [%s]: [%s]", path.c_str(),
             PendingErrors(*errors).c_str());
    return {};
  }
  const int index = X509_NAME_get_index_by_NID(issuer, NID_organizationName, -1);
  const X509_NAME_ENTRY* entry = index < 0 ? nullptr : X509_NAME_get_entry(issuer, index);
  if (entry == nullptr) {
    LogError(kTag, "get x509 issuer entry failed. [%s]: [%s]", path.c_str(),
             PendingErrors(*errors).c_str());
    return {};
  }
  const ASN1_STRING* data = X509_NAME_ENTRY_get_data(entry);
  if (data == nullptr) {
    LogError(kTag, "get x509 issuer entry data failed. [%s]: [%s]", path.c_str(),
             PendingErrors(*errors).c_str());
    return {};
  }
  return {reinterpret_cast<const char*>(ASN1_STRING_get0_data(data)),
          static_cast<size_t>(ASN1_STRING_length(data))};
}

}  // namespace kova
