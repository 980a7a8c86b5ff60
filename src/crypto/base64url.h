// base64url without padding (RFC 4648, section 5).
#pragma once

#include <string>

namespace kova {

std::string Base64UrlEncode(const unsigned char* bytes, size_t length);
std::string Base64UrlEncode(const std::string& bytes);

// Standard base64 alphabet to the URL one, in place; padding is left alone.
void ToBase64UrlAlphabet(std::string& text);

// Drops every trailing "=".
void StripBase64Padding(std::string& text);

}  // namespace kova
