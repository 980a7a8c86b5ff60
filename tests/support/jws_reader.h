// Takes a signed request apart and checks its signature, with nothing of the product's own code.
#pragma once

#include <json/value.h>

#include <string>

namespace kova::test {

struct Jws {
  Json::Value header;       // the protected header
  std::string header_text;  // its bytes
  std::string payload;      // its bytes
  std::string signature;    // as sent
  std::string signing_input;
};

std::string DecodeBase64Url(const std::string& text);
std::string EncodeBase64Url(const std::string& bytes);
std::string DigestBase64Url(const std::string& bytes);  // of the SHA-256

// Aborts the test program when the body is no JWS in flattened JSON form.
Jws ReadJws(const std::string& body);

// Whether the RS256 signature is that of the key ("n" and "e" of a JWK).
bool Verifies(const Jws& jws, const Json::Value& jwk);

}  // namespace kova::test
