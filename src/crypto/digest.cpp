#include "crypto/digest.h"

#include <openssl/evp.h>

#include <array>

#include "base/sl_error.h"
#include "crypto/base64url.h"

namespace kova {
namespace {

constexpr char kTag[] = "rsa";

}  // namespace

void Sha256(const unsigned char* bytes, size_t length, unsigned char out32[32]) {
  if (EVP_Digest(bytes, length, out32, nullptr, EVP_sha256(), nullptr) != 1) {
    throw Error(code::kAccountKey, kTag, "SHA-256 failed.");
  }
}

std::string Sha256Base64Url(const std::string& text) {
  std::array<unsigned char, 32> digest{};
  Sha256(reinterpret_cast<const unsigned char*>(text.data()), text.size(), digest.data());
  return Base64UrlEncode(digest.data(), digest.size());
}

}  // namespace kova
