// What a damaged account-key file can do: make signing fail, and nothing worse.
#include <gtest/gtest.h>

#include "base/sl_error.h"
#include "crypto/encoding.h"
#include "crypto/rsa.h"
#include "known_keys.h"
#include "libcrypto_watch.h"

namespace kova {
namespace {

constexpr const char* kNumbers[] = {"d", "dp", "dq", "e", "n", "p", "q", "qi"};

void ExpectCannotSign(const Json::Value& json, const std::string& what) {
  const auto key = RsaKey::FromJson(json);
  try {
    const std::string signature = key->Sign("text");
    ADD_FAILURE() << what << ": signed";
  } catch (const SLError& error) {
    EXPECT_EQ(error.code, 201) << what;
    EXPECT_EQ(error.message, "RSA: key sing failed.") << what;
    EXPECT_EQ(error.file, "rsa") << what;
  }
  EXPECT_EQ(key->ToJson().size(), 9U) << what;
  EXPECT_EQ(key->PublicJwk().size(), 3U) << what;
  EXPECT_EQ(key->Thumbprint().size(), 43U) << what;
}

// Signs or says that it cannot.
void ExpectNoWorseThanNoSignature(const Json::Value& json) {
  const auto key = RsaKey::FromJson(json);
  try {
    EXPECT_FALSE(key->Sign("text").empty());
  } catch (const SLError& error) {
    EXPECT_EQ(error.message, "RSA: key sing failed.");
  }
  EXPECT_EQ(key->Thumbprint().size(), 43U);
  EXPECT_EQ(key->ToJson().size(), 9U);
}

TEST(DamagedKey, CannotSignWithoutOneOfItsNumbers) {
  for (const char* member : kNumbers) {
    Json::Value json = test::Rfc7515Key();
    json.removeMember(member);
    ExpectCannotSign(json, member);
    EXPECT_EQ(RsaKey::FromJson(json)->ToJson()[member].asString(), "") << member;
  }
}

TEST(DamagedKey, CannotSignWithAMemberOfAnotherType) {
  for (const char* member : kNumbers) {
    for (const Json::Value& wrong :
         {Json::Value(), Json::Value(65537), Json::Value(true), Json::Value(Json::arrayValue),
          Json::Value(Json::objectValue)}) {
      Json::Value json = test::Rfc7515Key();
      json[member] = wrong;
      ExpectCannotSign(json, member);
    }
  }
}

TEST(DamagedKey, CannotSignWithANumberThatDoesNotDecode) {
  for (const char* member : kNumbers) {
    for (const char* wrong : {"", "!!!!", "not base64!", "caf\xc3\xa9"}) {
      Json::Value json = test::Rfc7515Key();
      json[member] = wrong;
      ExpectCannotSign(json, std::string(member) + wrong);
    }
  }
}

TEST(DamagedKey, CannotSignWhenTheFileHoldsNoObject) {
  for (const Json::Value& wrong : {Json::Value(), Json::Value("text"), Json::Value(3),
                                   Json::Value(Json::arrayValue), Json::Value(Json::objectValue)}) {
    ExpectCannotSign(wrong, "whole");
  }
}

TEST(DamagedKey, KeepsItsIdentityWithThePublicNumbersAlone) {
  const auto key = RsaKey::FromJson(test::Rfc7638Key());
  EXPECT_EQ(key->Thumbprint(), test::kRfc7638Thumbprint);
  ExpectCannotSign(test::Rfc7638Key(), "public");
}

TEST(DamagedKey, IsNotUsedWithNumbersOfAbsurdSize) {
  for (const char* member : kNumbers) {
    Json::Value json = test::Rfc7515Key();
    json[member] = Base64UrlEncode(std::string(16384 / 8 + 1, '\x7f'));
    ExpectCannotSign(json, member);
  }
}

TEST(DamagedKey, IsUsedWithANumberOfTheLargestSize) {
  Json::Value json = test::Rfc7515Key();
  const std::string signature = RsaKey::FromJson(json)->Sign("text");
  json["d"] = Base64UrlEncode(std::string(16384 / 8, '\xff'));  // the other numbers do without it
  EXPECT_EQ(RsaKey::FromJson(json)->Sign("text"), signature);
}

TEST(DamagedKey, CannotSignWithAModulusThatIsTooSmallForTheDigest) {
  Json::Value json = test::Rfc7515Key();
  json["n"] = Base64UrlEncode(std::string(32, '\x7f'));
  ExpectCannotSign(json, "n");
}

TEST(DamagedKey, NeverCrashes) {
  const Json::Value good = test::Rfc7515Key();
  for (const char* member : kNumbers) {
    const std::string text = good[member].asString();
    std::vector<std::string> variants = {"AA",
                                         "AQ",
                                         "Ag",
                                         "AQAA",
                                         text.substr(1),
                                         text.substr(text.size() / 2),
                                         text + "AAAA",
                                         good["p"].asString(),
                                         good["n"].asString(),
                                         Base64UrlEncode(std::string(256, '\xff')),
                                         Base64UrlEncode(std::string(300, '\xfe'))};
    for (const size_t position : {size_t{0}, text.size() / 2, text.size() - 1}) {
      std::string changed = text;
      changed[position] = changed[position] == 'A' ? 'B' : 'A';
      variants.push_back(changed);
    }
    for (const std::string& variant : variants) {
      Json::Value json = good;
      json[member] = variant;
      ExpectNoWorseThanNoSignature(json);
    }
  }
}

TEST(DamagedKey, CannotSignWithoutAlgorithms) {
  const auto key = RsaKey::FromJson(test::Rfc7515Key());
  const test::NoAlgorithms none;
  EXPECT_THROW((void)key->Sign("text"), SLError);
}

}  // namespace
}  // namespace kova
