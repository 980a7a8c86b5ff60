#include "crypto/x509_file.h"

#include <openssl/pem.h>

namespace kova::cert_archive {
namespace {

// The library's own way would be a question on the terminal.
int NoPassPhrase(char*, int, int, void*) { return -1; }

}  // namespace

CertificatePtr ReadCertificate(BIO& source) {
  return CertificatePtr(PEM_read_bio_X509(&source, nullptr, NoPassPhrase, nullptr));
}

PrivateKeyPtr ReadPrivateKey(BIO& source) {
  return PrivateKeyPtr(PEM_read_bio_PrivateKey(&source, nullptr, NoPassPhrase, nullptr));
}

}  // namespace kova::cert_archive
