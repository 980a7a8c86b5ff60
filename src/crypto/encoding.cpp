#include "crypto/encoding.h"

#include <openssl/hmac.h>

#include <algorithm>
#include <array>
#include <cctype>

#include "base/sl_error.h"
#include "crypto/secret.h"

namespace kova {
namespace {

constexpr char kTag[] = "rsa";

// Standard base64 with its padding, as the decoder of libcrypto wants it.
std::string ToPaddedBase64(const std::string& text) {
  std::string padded;
  padded.reserve(text.size() + 3);
  padded = text;
  padded.append((4 - text.size() % 4) % 4, '=');
  std::replace(padded.begin(), padded.end(), '-', '+');
  std::replace(padded.begin(), padded.end(), '_', '/');
  return padded;
}

}  // namespace

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

std::optional<std::string> Base64UrlDecode(const std::string& text) {
  std::string digits = text;
  StripBase64Padding(digits);
  const auto is_digit = [](unsigned char c) {
    return std::isalnum(c) != 0 || c == '-' || c == '_';
  };
  if (digits.size() % 4 == 1 || !std::all_of(digits.begin(), digits.end(), is_digit)) {
    return std::nullopt;
  }
  const std::string padded = ToPaddedBase64(digits);
  std::string bytes(padded.size() / 4 * 3, '\0');
  if (EVP_DecodeBlock(reinterpret_cast<unsigned char*>(bytes.data()),
                      reinterpret_cast<const unsigned char*>(padded.data()),
                      static_cast<int>(padded.size())) < 0) {
    return std::nullopt;
  }
  bytes.resize(digits.size() * 3 / 4);  // without the zeros that padding stands for
  return bytes;
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

BignumPtr Base64UrlDecodeBignum(const std::string& text) {
  SecretText encoded;
  encoded.text = ToPaddedBase64(text);
  const int length = static_cast<int>(encoded.text.size());
  const BioPtr decoder(BIO_new(BIO_f_base64()));
  BioPtr source(BIO_new_mem_buf(encoded.text.data(), length));
  if (!decoder || !source) return nullptr;
  BIO_set_flags(decoder.get(), BIO_FLAGS_BASE64_NO_NL);
  BIO_push(decoder.get(), source.release());

  SecretText bytes;
  bytes.text.resize(encoded.text.size());
  const int decoded = BIO_read(decoder.get(), bytes.text.data(), length);
  if (decoded <= 0) return nullptr;
  BignumPtr number(BN_secure_new());
  const auto* start = reinterpret_cast<const unsigned char*>(bytes.text.data());
  if (!number || BN_bin2bn(start, decoded, number.get()) == nullptr) return nullptr;
  return number;
}

std::string Base64UrlEncodeBignum(const BIGNUM& number) {
  SecretText bytes;
  bytes.text.resize(static_cast<size_t>(BN_num_bytes(&number)));
  BN_bn2bin(&number, reinterpret_cast<unsigned char*>(bytes.text.data()));
  return Base64UrlEncode(bytes.text);
}

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

std::string HmacSha256Base64Url(const std::string& key, const std::string& text) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned int length = 0;
  if (HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()),
           reinterpret_cast<const unsigned char*>(text.data()), text.size(), digest.data(),
           &length) == nullptr) {
    throw Error(code::kAccountKey, kTag, "SHA-256 failed.");
  }
  return Base64UrlEncode(digest.data(), length);
}

}  // namespace kova
