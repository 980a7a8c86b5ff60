// What a certificate says: whom it is for, who issued it, how long it holds, which key it fits.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "crypto/openssl_ptr.h"

namespace kova {

class Certificate {
 public:
  explicit Certificate(X509Ptr certificate);  // not null

  // The first certificate of a PEM file, or none. Nothing is logged, nobody is asked for a pass
  // phrase, and only regular files are opened.
  [[nodiscard]] static std::optional<Certificate> FromFile(const std::string& path);

  // All certificates of a PEM text, in its order; empty when one of them cannot be read, and for a
  // text that is none.
  [[nodiscard]] static std::vector<Certificate> ChainFromText(const std::string& pem);

  // The host names and addresses of the subjectAltName, in its order; other kinds are left out.
  [[nodiscard]] std::vector<std::string> AlternativeNames() const;

  // The first such entry as UTF-8; empty when there is none.
  [[nodiscard]] std::string CommonName() const;
  [[nodiscard]] std::string IssuerOrganization() const;
  // The same in the bytes that the certificate holds, whatever their encoding.
  [[nodiscard]] std::string IssuerOrganizationBytes() const;
  [[nodiscard]] std::string IssuerCommonName() const;

  // Seconds since the epoch; none for a time that is not written as one.
  [[nodiscard]] std::optional<std::int64_t> NotBefore() const;
  [[nodiscard]] std::optional<std::int64_t> NotAfter() const;

  // True when it holds no longer at that moment. A time that is not written as the standard wants
  // it compares as false.
  [[nodiscard]] bool EndsBy(std::int64_t moment) const;

  // The octets of the DER integer, a leading zero byte included.
  [[nodiscard]] std::string Serial() const;

  // The key identifier of the authorityKeyIdentifier; empty when there is none.
  [[nodiscard]] std::string AuthorityKeyId() const;

  // Whether its public key is that private key's, of whatever kind.
  [[nodiscard]] bool Fits(const EVP_PKEY& private_key) const;
  [[nodiscard]] bool FitsKeyText(const std::string& private_key_pem) const;

  // Whether that issuer's name, permissions and signature stand behind it. Times are not looked at.
  [[nodiscard]] bool IsIssuedBy(const Certificate& issuer) const;

 private:
  X509Ptr certificate_;
};

// The bytes of the first organisation ("O") of the issuer of a PEM certificate file; empty, with a
// message in the system log, when there is none or the file cannot be read.
std::string IssuerOrganization(const std::string& path);

}  // namespace kova
