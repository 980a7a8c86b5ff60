#include "crypto/rsa.h"

#include <gtest/gtest.h>
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/param_build.h>

#include "base/json.h"
#include "base/sl_error.h"
#include "crypto/encoding.h"
#include "known_keys.h"
#include "libcrypto_watch.h"

namespace kova {
namespace {

BignumPtr Number(const Json::Value& jwk, const char* member) {
  return Base64UrlDecodeBignum(jwk[member].asString());
}

std::string Bytes(const std::string& base64url) {
  const BignumPtr number = Base64UrlDecodeBignum(base64url);
  std::string bytes(256, '\0');
  BN_bn2binpad(number.get(), reinterpret_cast<unsigned char*>(bytes.data()), 256);
  return bytes;
}

// Checks an RS256 signature with nothing but the public numbers.
bool Verifies(const Json::Value& public_jwk, const std::string& text,
              const std::string& signature) {
  const BignumPtr n = Number(public_jwk, "n");
  const BignumPtr e = Number(public_jwk, "e");
  OSSL_PARAM_BLD* builder = OSSL_PARAM_BLD_new();
  OSSL_PARAM_BLD_push_BN(builder, OSSL_PKEY_PARAM_RSA_N, n.get());
  OSSL_PARAM_BLD_push_BN(builder, OSSL_PKEY_PARAM_RSA_E, e.get());
  OSSL_PARAM* params = OSSL_PARAM_BLD_to_param(builder);
  const EvpPkeyCtxPtr context(EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr));
  EVP_PKEY* raw = nullptr;
  EVP_PKEY_fromdata_init(context.get());
  EVP_PKEY_fromdata(context.get(), &raw, EVP_PKEY_PUBLIC_KEY, params);
  OSSL_PARAM_free(params);
  OSSL_PARAM_BLD_free(builder);
  const EvpPkeyPtr pkey(raw);
  const EvpMdCtxPtr digest(EVP_MD_CTX_new());
  const std::string bytes = Bytes(signature);
  return EVP_DigestVerifyInit(digest.get(), nullptr, EVP_sha256(), nullptr, pkey.get()) == 1 &&
         EVP_DigestVerify(digest.get(), reinterpret_cast<const unsigned char*>(bytes.data()),
                          bytes.size(), reinterpret_cast<const unsigned char*>(text.data()),
                          text.size()) == 1;
}

TEST(RsaKeyGenerate, MakesA2048BitKeyWithTheUsualExponent) {
  const auto key = RsaKey::Generate();
  const Json::Value json = key->ToJson();
  EXPECT_EQ(BN_num_bits(Number(json, "n").get()), 2048);
  EXPECT_EQ(json["e"].asString(), "AQAB");
  EXPECT_EQ(BN_num_bits(Number(json, "p").get()), 1024);
  EXPECT_EQ(BN_num_bits(Number(json, "q").get()), 1024);
}

TEST(RsaKeyGenerate, MakesAnotherKeyEachTime) {
  EXPECT_NE(RsaKey::Generate()->Thumbprint(), RsaKey::Generate()->Thumbprint());
}

TEST(RsaKeyGenerate, SaysWhenItFails) {
  const test::NoAlgorithms none;
  try {
    const auto key = RsaKey::Generate();
    FAIL() << "no error";
  } catch (const SLError& error) {
    EXPECT_EQ(error.code, 201);
    EXPECT_EQ(error.message, "RSA: Key Generator failed.");
    EXPECT_EQ(error.file, "rsa");
  }
}

TEST(RsaKeyToJson, HasNineTextMembers) {
  const Json::Value json = RsaKey::Generate()->ToJson();
  EXPECT_EQ(json.getMemberNames(),
            (std::vector<std::string>{"d", "dp", "dq", "e", "kty", "n", "p", "q", "qi"}));
  for (const std::string& member : json.getMemberNames()) {
    ASSERT_TRUE(json[member].isString()) << member;
    EXPECT_FALSE(json[member].asString().empty()) << member;
    EXPECT_EQ(json[member].asString().find_first_of("+/="), std::string::npos) << member;
  }
  EXPECT_EQ(json["kty"].asString(), "RSA");
}

TEST(RsaKeyToJson, RelatesTheNumbersAsRsaDoes) {
  const Json::Value json = RsaKey::Generate()->ToJson();
  const BignumPtr product(BN_new());
  const std::unique_ptr<BN_CTX, OpensslFree<BN_CTX_free>> context(BN_CTX_new());
  BN_mul(product.get(), Number(json, "p").get(), Number(json, "q").get(), context.get());
  EXPECT_EQ(BN_cmp(product.get(), Number(json, "n").get()), 0);
  BN_mod_mul(product.get(), Number(json, "qi").get(), Number(json, "q").get(),
             Number(json, "p").get(), context.get());
  EXPECT_TRUE(BN_is_one(product.get()));
  const BignumPtr less_one = Number(json, "p");
  BN_sub_word(less_one.get(), 1);
  BN_mod(product.get(), Number(json, "d").get(), less_one.get(), context.get());
  EXPECT_EQ(BN_cmp(product.get(), Number(json, "dp").get()), 0);
  const BignumPtr q_less_one = Number(json, "q");
  BN_sub_word(q_less_one.get(), 1);
  BN_mod(product.get(), Number(json, "d").get(), q_less_one.get(), context.get());
  EXPECT_EQ(BN_cmp(product.get(), Number(json, "dq").get()), 0);
}

TEST(RsaKeyToJson, GivesBackWhatFromJsonTook) {
  EXPECT_EQ(RsaKey::FromJson(test::Rfc7515Key())->ToJson(), test::Rfc7515Key());
}

TEST(RsaKeyFromJson, DoesNotLookAtTheKeyType) {
  Json::Value json = test::Rfc7515Key();
  json["kty"] = "EC";
  EXPECT_EQ(RsaKey::FromJson(json)->Sign(test::kRfc7515SigningInput), test::kRfc7515Signature);
  json.removeMember("kty");
  EXPECT_EQ(RsaKey::FromJson(json)->Sign(test::kRfc7515SigningInput), test::kRfc7515Signature);
}

TEST(RsaKeyFromJson, LeavesNoPrivateNumberBehind) {
  const Json::Value json = test::Rfc7515Key();
  const test::CleansedBytes cleansed;
  { const auto key = RsaKey::FromJson(json); }
  for (const char* member : {"d", "p", "q", "dp", "dq", "qi"}) {
    EXPECT_TRUE(cleansed.Include(json[member].asString())) << member;
  }
}

TEST(RsaKeyPublicJwk, HoldsTheThreePublicMembers) {
  const Json::Value jwk = RsaKey::FromJson(test::Rfc7515Key())->PublicJwk();
  EXPECT_EQ(JsonToString(jwk),
            std::string(R"({"e":"AQAB","kty":"RSA","n":")") + test::kRfc7515Modulus + "\"}");
}

TEST(RsaKeyPublicJwk, WritesASmallModulusWithoutALeadingZero) {
  Json::Value json = test::Rfc7515Key();
  json["n"] = "fw";
  EXPECT_EQ(RsaKey::FromJson(json)->PublicJwk()["n"].asString(), "fw");
  json["n"] = "AAB_";
  EXPECT_EQ(RsaKey::FromJson(json)->PublicJwk()["n"].asString(), "fw");
}

TEST(RsaKeySign, MakesThePublishedSignature) {
  EXPECT_EQ(RsaKey::FromJson(test::Rfc7515Key())->Sign(test::kRfc7515SigningInput),
            test::kRfc7515Signature);
}

TEST(RsaKeySign, MakesSignaturesThatThePublicKeyVerifies) {
  const auto key = RsaKey::Generate();
  const std::string text("any\0bytes\xff", 10);
  const std::string signature = key->Sign(text);
  EXPECT_EQ(signature.size(), 342U);
  EXPECT_EQ(signature.find_first_of("+/="), std::string::npos);
  EXPECT_TRUE(Verifies(key->PublicJwk(), text, signature));
  EXPECT_FALSE(Verifies(key->PublicJwk(), "other", signature));
  EXPECT_TRUE(Verifies(key->PublicJwk(), "", key->Sign("")));
}

TEST(RsaKeySign, IsTheSameForAKeyThatWasStoredAndLoaded) {
  const auto key = RsaKey::Generate();
  Json::Value stored;
  ASSERT_TRUE(JsonFromText(JsonStyledText(key->ToJson()), stored));
  EXPECT_EQ(RsaKey::FromJson(stored)->Sign("text"), key->Sign("text"));
}

TEST(RsaKeyThumbprint, IsThePublishedOne) {
  EXPECT_EQ(RsaKey::FromJson(test::Rfc7638Key())->Thumbprint(), test::kRfc7638Thumbprint);
}

TEST(RsaKeyThumbprint, IsA43CharacterText) {
  const std::string thumbprint = RsaKey::Generate()->Thumbprint();
  EXPECT_EQ(thumbprint.size(), 43U);
  EXPECT_EQ(thumbprint.find_first_of("=+/"), std::string::npos);
}

}  // namespace
}  // namespace kova
