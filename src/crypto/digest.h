// SHA-256. Both throw SLError 201 "SHA-256 failed." (file "rsa") when libcrypto offers none.
#pragma once

#include <string>

namespace kova {

void Sha256(const unsigned char* bytes, size_t length, unsigned char out32[32]);

// base64url of the digest of the bytes of `text`.
std::string Sha256Base64Url(const std::string& text);

}  // namespace kova
