// Certificates and private keys in PEM files.
#pragma once

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <memory>
#include <string>

namespace kova::cert_archive {

template <auto F>
struct CryptoFree {
  void operator()(auto* object) const noexcept { F(object); }
};

using BioPtr = std::unique_ptr<BIO, CryptoFree<BIO_free_all>>;
using CertificatePtr = std::unique_ptr<X509, CryptoFree<X509_free>>;
using PrivateKeyPtr = std::unique_ptr<EVP_PKEY, CryptoFree<EVP_PKEY_free>>;

// The first one in the text that `source` reads, or none; nobody is asked for a pass phrase. The
// library's error queue then says why not.
[[nodiscard]] CertificatePtr ReadCertificate(BIO& source);
[[nodiscard]] PrivateKeyPtr ReadPrivateKey(BIO& source);

}  // namespace kova::cert_archive
