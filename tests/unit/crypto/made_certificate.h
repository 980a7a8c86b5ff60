// Certificates with chosen contents, made with the library alone.
#pragma once

#include <string>

#include "crypto/openssl_ptr.h"

namespace kova::test {

struct CertificateWish {
  std::string common_name = "leaf";
  std::string organization{};       // none when empty
  std::string alternative_names{};  // as the library's configuration has them, "DNS:a, IP:::1"
  std::string serial = "01";        // hexadecimal
  long starts = -3600;              // seconds from now
  long ends = 3600;
  bool is_authority = false;
  std::string key_id = "hash";  // an authority's: in hexadecimal, or made of its key
};

struct MadeCertificate {
  EvpPkeyPtr key;
  X509Ptr certificate;
};

// Signed by `issuer`, or by itself without one. Without a key one is made on P-256.
MadeCertificate MakeCertificate(const CertificateWish& wish,
                                const MadeCertificate* issuer = nullptr, EvpPkeyPtr key = nullptr);

std::string PemOf(X509& certificate);
std::string PemOf(EVP_PKEY& key);  // PKCS#8

}  // namespace kova::test
