#include "crypto/bignum.h"

#include <algorithm>

#include "crypto/base64url.h"
#include "crypto/secret.h"

namespace kova {
namespace {

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

}  // namespace kova
