#include "jws_reader.h"

#include <json/reader.h>
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/param_build.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <sstream>

namespace kova::test {
namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";

template <auto F>
struct Free {
  void operator()(auto* object) const noexcept { F(object); }
};
template <typename T, auto F>
using Owner = std::unique_ptr<T, Free<F>>;

const unsigned char* Bytes(const std::string& text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

bool Parse(const std::string& text, Json::Value& value) {
  std::istringstream stream(text);
  std::string problem;
  return Json::parseFromStream(Json::CharReaderBuilder(), stream, &value, &problem);
}

[[noreturn]] void Refuse(const std::string& what, const std::string& body) {
  std::fprintf(stderr, "%s: %s\n", what.c_str(), body.c_str());
  std::abort();
}

BIGNUM* Number(const Json::Value& text) {
  const std::string bytes = DecodeBase64Url(text.asString());
  return BN_bin2bn(Bytes(bytes), static_cast<int>(bytes.size()), nullptr);
}

Owner<EVP_PKEY, EVP_PKEY_free> PublicKey(const Json::Value& jwk) {
  const Owner<BIGNUM, BN_free> n(Number(jwk["n"]));
  const Owner<BIGNUM, BN_free> e(Number(jwk["e"]));
  const Owner<OSSL_PARAM_BLD, OSSL_PARAM_BLD_free> builder(OSSL_PARAM_BLD_new());
  OSSL_PARAM_BLD_push_BN(builder.get(), OSSL_PKEY_PARAM_RSA_N, n.get());
  OSSL_PARAM_BLD_push_BN(builder.get(), OSSL_PKEY_PARAM_RSA_E, e.get());
  const Owner<OSSL_PARAM, OSSL_PARAM_free> params(OSSL_PARAM_BLD_to_param(builder.get()));
  const Owner<EVP_PKEY_CTX, EVP_PKEY_CTX_free> context(
      EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr));
  EVP_PKEY* key = nullptr;
  EVP_PKEY_fromdata_init(context.get());
  EVP_PKEY_fromdata(context.get(), &key, EVP_PKEY_PUBLIC_KEY, params.get());
  return Owner<EVP_PKEY, EVP_PKEY_free>(key);
}

}  // namespace

std::string DecodeBase64Url(const std::string& text) {
  std::string bytes;
  unsigned bits = 0;
  int count = 0;
  for (const char character : text) {
    const char* place = std::char_traits<char>::find(kAlphabet, sizeof kAlphabet - 1, character);
    if (place == nullptr) Refuse("not base64url", text);
    bits = (bits << 6) | static_cast<unsigned>(place - kAlphabet);
    count += 6;
    if (count < 8) continue;
    count -= 8;
    bytes += static_cast<char>((bits >> count) & 0xff);
  }
  return bytes;
}

std::string EncodeBase64Url(const std::string& bytes) {
  std::string text;
  unsigned bits = 0;
  int count = 0;
  for (const char byte : bytes) {
    bits = (bits << 8) | static_cast<unsigned char>(byte);
    for (count += 8; count >= 6;) text += kAlphabet[(bits >> (count -= 6)) & 0x3f];
  }
  if (count > 0) text += kAlphabet[(bits << (6 - count)) & 0x3f];
  return text;
}

std::string DigestBase64Url(const std::string& bytes) {
  std::array<char, 32> digest{};
  EVP_Digest(bytes.data(), bytes.size(), reinterpret_cast<unsigned char*>(digest.data()), nullptr,
             EVP_sha256(), nullptr);
  return EncodeBase64Url({digest.data(), digest.size()});
}

Jws ReadJws(const std::string& body) {
  Json::Value document;
  if (!Parse(body, document) || !document.isObject() || document.size() != 3) {
    Refuse("not a JWS", body);
  }
  Jws jws;
  const std::string encoded_header = document["protected"].asString();
  const std::string encoded_payload = document["payload"].asString();
  jws.header_text = DecodeBase64Url(encoded_header);
  jws.payload = DecodeBase64Url(encoded_payload);
  jws.signature = document["signature"].asString();
  jws.signing_input = encoded_header + "." + encoded_payload;
  if (!Parse(jws.header_text, jws.header)) Refuse("not a JWS", body);
  return jws;
}

bool Verifies(const Jws& jws, const Json::Value& jwk) {
  const auto key = PublicKey(jwk);
  const Owner<EVP_MD_CTX, EVP_MD_CTX_free> context(EVP_MD_CTX_new());
  const std::string signature = DecodeBase64Url(jws.signature);
  return key != nullptr &&
         EVP_DigestVerifyInit(context.get(), nullptr, EVP_sha256(), nullptr, key.get()) == 1 &&
         EVP_DigestVerify(context.get(), Bytes(signature), signature.size(),
                          Bytes(jws.signing_input), jws.signing_input.size()) == 1;
}

}  // namespace kova::test
