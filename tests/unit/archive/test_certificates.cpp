#include "test_certificates.h"

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include "crypto/openssl_ptr.h"
#include "self_signed/mkcert.h"

namespace kova::test {
namespace {

std::string Content(BIO* bio) {
  char* text = nullptr;
  const long length = BIO_get_mem_data(bio, &text);
  return {text, static_cast<size_t>(length)};
}

}  // namespace

PemPair MakePemPair(long seconds, const std::string& issuer_organization) {
  const EvpPkeyPtr key(EVP_EC_gen("P-256"));
  const X509Ptr certificate(X509_new());
  X509_set_version(certificate.get(), X509_VERSION_3);
  ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), 1);
  X509_gmtime_adj(X509_getm_notBefore(certificate.get()), seconds - 100 * 86400L);
  X509_gmtime_adj(X509_getm_notAfter(certificate.get()), seconds);
  X509_NAME* name = X509_get_subject_name(certificate.get());
  X509_NAME_add_entry_by_txt(name, "O", MBSTRING_UTF8,
                             reinterpret_cast<const unsigned char*>(issuer_organization.c_str()),
                             -1, -1, 0);
  X509_set_issuer_name(certificate.get(), name);
  X509_set_pubkey(certificate.get(), key.get());
  X509_sign(certificate.get(), key.get(), EVP_sha256());
  const BioPtr certificate_text(BIO_new(BIO_s_mem()));
  const BioPtr key_text(BIO_new(BIO_s_mem()));
  PEM_write_bio_X509(certificate_text.get(), certificate.get());
  PEM_write_bio_PrivateKey(key_text.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr);
  return {Content(certificate_text.get()), Content(key_text.get())};
}

std::string MatchOf(const std::string& certificate, const std::string& key) {
  bool matches = false;
  if (!mkcert::MatchKey(certificate, key, matches)) return "unknown";
  return matches ? "yes" : "no";
}

}  // namespace kova::test
