#include "made_certificate.h"

#include <gtest/gtest.h>
#include <openssl/pem.h>

#include <utility>

namespace kova::test {
namespace {

using ExtensionPtr = std::unique_ptr<X509_EXTENSION, OpensslFree<X509_EXTENSION_free>>;

void Extend(X509& certificate, X509& issuer, int kind, const std::string& value) {
  X509V3_CTX context;
  X509V3_set_ctx(&context, &issuer, &certificate, nullptr, nullptr, 0);
  const ExtensionPtr extension(X509V3_EXT_conf_nid(nullptr, &context, kind, value.c_str()));
  ASSERT_TRUE(extension) << value;
  ASSERT_EQ(X509_add_ext(&certificate, extension.get(), -1), 1);
}

void Name(X509& certificate, const char* field, const std::string& text) {
  if (text.empty()) return;
  X509_NAME_add_entry_by_txt(X509_get_subject_name(&certificate), field, MBSTRING_UTF8,
                             reinterpret_cast<const unsigned char*>(text.c_str()), -1, -1, 0);
}

void Number(X509& certificate, const std::string& hexadecimal) {
  BIGNUM* number = nullptr;
  BN_hex2bn(&number, hexadecimal.c_str());
  const BignumPtr owner(number);
  BN_to_ASN1_INTEGER(number, X509_get_serialNumber(&certificate));
}

}  // namespace

MadeCertificate MakeCertificate(const CertificateWish& wish, const MadeCertificate* issuer,
                                EvpPkeyPtr key) {
  MadeCertificate made{std::move(key), X509Ptr(X509_new())};
  if (made.key == nullptr) made.key.reset(EVP_EC_gen("P-256"));
  X509& certificate = *made.certificate;
  X509& authority = issuer == nullptr ? certificate : *issuer->certificate;
  X509_set_version(&certificate, X509_VERSION_3);
  Number(certificate, wish.serial);
  X509_gmtime_adj(X509_getm_notBefore(&certificate), wish.starts);
  X509_gmtime_adj(X509_getm_notAfter(&certificate), wish.ends);
  Name(certificate, "O", wish.organization);
  Name(certificate, "CN", wish.common_name);
  X509_set_issuer_name(&certificate, X509_get_subject_name(&authority));
  X509_set_pubkey(&certificate, made.key.get());
  if (wish.is_authority) {
    Extend(certificate, authority, NID_basic_constraints, "critical,CA:TRUE");
    Extend(certificate, authority, NID_subject_key_identifier, wish.key_id);
  } else if (issuer != nullptr) {
    Extend(certificate, authority, NID_authority_key_identifier, "keyid:always");
  }
  if (!wish.alternative_names.empty()) {
    Extend(certificate, authority, NID_subject_alt_name, wish.alternative_names);
  }
  X509_sign(&certificate, issuer == nullptr ? made.key.get() : issuer->key.get(), EVP_sha256());
  return made;
}

std::string PemOf(X509& certificate) {
  const BioPtr text(BIO_new(BIO_s_mem()));
  PEM_write_bio_X509(text.get(), &certificate);
  return BioText(*text);
}

std::string PemOf(EVP_PKEY& key) {
  const BioPtr text(BIO_new(BIO_s_mem()));
  PEM_write_bio_PrivateKey(text.get(), &key, nullptr, nullptr, 0, nullptr, nullptr);
  return BioText(*text);
}

}  // namespace kova::test
