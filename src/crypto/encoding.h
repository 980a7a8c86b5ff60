// base64url without padding (RFC 4648, section 5): of bytes, of a JWK's numbers, of digests.
#pragma once

#include <optional>
#include <string>

#include "crypto/openssl_ptr.h"

namespace kova {

std::string Base64UrlEncode(const unsigned char* bytes, size_t length);
std::string Base64UrlEncode(const std::string& bytes);

// Standard base64 alphabet to the URL one, in place; padding is left alone.
void ToBase64UrlAlphabet(std::string& text);

// The bytes of a base64url text, padded or not; none when it is none.
std::optional<std::string> Base64UrlDecode(const std::string& text);

// Drops every trailing "=".
void StripBase64Padding(std::string& text);

// Numbers are base64url of their unsigned big-endian bytes, minimal length. None when nothing
// decodes.
BignumPtr Base64UrlDecodeBignum(const std::string& text);
std::string Base64UrlEncodeBignum(const BIGNUM& number);

// Both throw SLError 201 "SHA-256 failed." (file "rsa") when libcrypto offers no SHA-256.
void Sha256(const unsigned char* bytes, size_t length, unsigned char out32[32]);
std::string Sha256Base64Url(const std::string& text);

// base64url of the HMAC with SHA-256 (HS256). Throws as they do.
std::string HmacSha256Base64Url(const std::string& key, const std::string& text);

}  // namespace kova
