#include "crypto/rsa.h"

#include <openssl/core_names.h>
#include <openssl/param_build.h>
#include <openssl/rsa.h>

#include <array>

#include "base/json.h"
#include "base/sl_error.h"
#include "crypto/encoding.h"
#include "crypto/openssl_ptr.h"
#include "crypto/secret.h"

namespace kova {
namespace {

constexpr char kTag[] = "rsa";
constexpr int kKeyBits = 2048;
constexpr int kMaximumBits = 16384;  // a damaged key file must not cost hours of arithmetic

// The numbers of a key in the order in which they are loaded: JWK member, libcrypto's name.
struct Component {
  const char* member;
  const char* parameter;
};
constexpr std::array<Component, 8> kComponents{{
    {"e", OSSL_PKEY_PARAM_RSA_E},
    {"n", OSSL_PKEY_PARAM_RSA_N},
    {"d", OSSL_PKEY_PARAM_RSA_D},
    {"q", OSSL_PKEY_PARAM_RSA_FACTOR2},
    {"p", OSSL_PKEY_PARAM_RSA_FACTOR1},
    {"qi", OSSL_PKEY_PARAM_RSA_COEFFICIENT1},
    {"dp", OSSL_PKEY_PARAM_RSA_EXPONENT1},
    {"dq", OSSL_PKEY_PARAM_RSA_EXPONENT2},
}};
constexpr size_t kPublicComponents = 2;

using ParamBuilderPtr = std::unique_ptr<OSSL_PARAM_BLD, OpensslFree<OSSL_PARAM_BLD_free>>;
using ParamsPtr = std::unique_ptr<OSSL_PARAM, OpensslFree<OSSL_PARAM_free>>;

SLError GeneratorFailed(Site site = kTag) {
  return Error(code::kAccountKey, site, "RSA: Key Generator failed.");
}

}  // namespace

// In the order of kComponents; what a key does not have is null.
struct RsaKey::Numbers {
  std::array<BignumPtr, kComponents.size()> values;

  // The first `count` numbers as JWK members; an absent number is an empty text.
  [[nodiscard]] Json::Value ToJwk(size_t count) const;

  // The key as libcrypto wants it for signing; none when it lacks a number or is not usable.
  [[nodiscard]] EvpPkeyPtr ToPkey() const;
};

Json::Value RsaKey::Numbers::ToJwk(size_t count) const {
  Json::Value jwk(Json::objectValue);
  jwk["kty"] = "RSA";
  for (size_t i = 0; i < count; ++i) {
    SecretText encoded;
    if (values[i]) encoded.text = Base64UrlEncodeBignum(*values[i]);
    jwk[kComponents[i].member] = encoded.text;
  }
  return jwk;
}

EvpPkeyPtr RsaKey::Numbers::ToPkey() const {
  const ParamBuilderPtr builder(OSSL_PARAM_BLD_new());
  if (!builder) return nullptr;
  for (size_t i = 0; i < values.size(); ++i) {
    if (!values[i] || BN_num_bits(values[i].get()) > kMaximumBits) return nullptr;
    if (OSSL_PARAM_BLD_push_BN(builder.get(), kComponents[i].parameter, values[i].get()) != 1) {
      return nullptr;
    }
  }
  const ParamsPtr params(OSSL_PARAM_BLD_to_param(builder.get()));
  const EvpPkeyCtxPtr context(EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr));
  EVP_PKEY* pkey = nullptr;
  if (!params || !context || EVP_PKEY_fromdata_init(context.get()) != 1 ||
      EVP_PKEY_fromdata(context.get(), &pkey, EVP_PKEY_KEYPAIR, params.get()) != 1) {
    return nullptr;
  }
  return EvpPkeyPtr(pkey);
}

RsaKey::RsaKey(std::unique_ptr<Numbers> numbers) : numbers_(std::move(numbers)) {}
RsaKey::~RsaKey() = default;

std::unique_ptr<RsaKey> RsaKey::Generate() {
  const EvpPkeyPtr pkey(EVP_RSA_gen(kKeyBits));  // its exponent is 65537
  if (!pkey) throw GeneratorFailed();
  auto numbers = std::make_unique<Numbers>();
  for (size_t i = 0; i < kComponents.size(); ++i) {
    BIGNUM* number = BN_secure_new();
    numbers->values[i].reset(number);
    if (number == nullptr ||
        EVP_PKEY_get_bn_param(pkey.get(), kComponents[i].parameter, &number) != 1) {
      throw GeneratorFailed();
    }
  }
  return std::unique_ptr<RsaKey>(new RsaKey(std::move(numbers)));
}

std::unique_ptr<RsaKey> RsaKey::FromJson(const Json::Value& json) {
  auto numbers = std::make_unique<Numbers>();
  for (size_t i = 0; i < kComponents.size(); ++i) {
    SecretText encoded;
    encoded.text = TextMember(json, kComponents[i].member);
    numbers->values[i] = Base64UrlDecodeBignum(encoded.text);
  }
  return std::unique_ptr<RsaKey>(new RsaKey(std::move(numbers)));
}

Json::Value RsaKey::ToJson() const { return numbers_->ToJwk(kComponents.size()); }

Json::Value RsaKey::PublicJwk() const { return numbers_->ToJwk(kPublicComponents); }

std::string RsaKey::Sign(const std::string& text) const {
  const EvpPkeyPtr pkey = numbers_->ToPkey();
  const EvpMdCtxPtr context(EVP_MD_CTX_new());
  std::string signature;
  size_t length = 0;
  if (pkey && context &&
      EVP_DigestSignInit(context.get(), nullptr, EVP_sha256(), nullptr, pkey.get()) == 1 &&
      EVP_DigestSignUpdate(context.get(), text.data(), text.size()) == 1 &&
      EVP_DigestSignFinal(context.get(), nullptr, &length) == 1) {
    signature.resize(length);
    auto* bytes = reinterpret_cast<unsigned char*>(signature.data());
    if (EVP_DigestSignFinal(context.get(), bytes, &length) != 1) length = 0;
    signature.resize(length);
  }
  if (signature.empty()) throw Error(code::kAccountKey, kTag, "RSA: key sing failed.");
  return Base64UrlEncode(signature);
}

std::string RsaKey::Thumbprint() const { return Sha256Base64Url(JsonToString(PublicJwk())); }

}  // namespace kova
