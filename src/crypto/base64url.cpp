#include "crypto/base64url.h"

#include <openssl/evp.h>

namespace kova {

std::string Base64UrlEncode(const unsigned char* bytes, size_t length) {
  std::string text((length + 2) / 3 * 4 + 1, '\0');  // the encoder ends its text with a NUL
  const int written = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), bytes,
                                      static_cast<int>(length));
  text.resize(static_cast<size_t>(written));
  StripBase64Padding(text);
  ToBase64UrlAlphabet(text);
  return text;
}

std::string Base64UrlEncode(const std::string& bytes) {
  return Base64UrlEncode(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
}

void ToBase64UrlAlphabet(std::string& text) {
  for (char& character : text) {
    if (character == '+') character = '-';
    if (character == '/') character = '_';
  }
}

void StripBase64Padding(std::string& text) {
  while (!text.empty() && text.back() == '=') text.pop_back();
}

}  // namespace kova
