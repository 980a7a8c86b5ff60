// The ACME account key: an RSA key pair with its JSON forms, thumbprint and RS256 signatures.
#pragma once

#include <json/value.h>

#include <memory>
#include <string>

namespace kova {

class RsaKey {
 public:
  // A new 2048-bit key with exponent 65537. Throws SLError 201 "RSA: Key Generator failed.".
  static std::unique_ptr<RsaKey> Generate();

  // From the private JSON form (d, dp, dq, e, n, p, q, qi as base64url numbers). Never fails: what
  // is missing or unusable shows at signing time.
  static std::unique_ptr<RsaKey> FromJson(const Json::Value& json);

  ~RsaKey();
  RsaKey(const RsaKey&) = delete;
  RsaKey& operator=(const RsaKey&) = delete;

  // The private JSON form, "kty" included: nine members.
  [[nodiscard]] Json::Value ToJson() const;

  // {"e", "kty", "n"}.
  [[nodiscard]] Json::Value PublicJwk() const;

  // base64url of the RS256 signature of the bytes of `text`. Throws SLError 201
  // "RSA: key sing failed." when the key cannot sign.
  [[nodiscard]] std::string Sign(const std::string& text) const;

  // RFC 7638: base64url of the SHA-256 of the compact public JWK; 43 characters.
  [[nodiscard]] std::string Thumbprint() const;

 private:
  struct Numbers;
  explicit RsaKey(std::unique_ptr<Numbers> numbers);
  std::unique_ptr<Numbers> numbers_;
};

}  // namespace kova
