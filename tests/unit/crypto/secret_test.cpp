#include "crypto/secret.h"

#include <gtest/gtest.h>

#include "libcrypto_watch.h"

namespace kova {
namespace {

TEST(Cleanse, OverwritesAndEmptiesAText) {
  for (const size_t length : {size_t{5}, size_t{100}, size_t{10000}}) {
    std::string secret(length, 's');
    const test::CleansedBytes cleansed;
    Cleanse(secret);
    EXPECT_EQ(secret, "");
    EXPECT_TRUE(cleansed.Include(std::string(length, 's')));
  }
}

TEST(Cleanse, ReachesWhatALongerTextLeftBehind) {
  std::string secret(100, 's');
  const char* bytes = secret.data();
  secret.resize(1);
  Cleanse(secret);
  EXPECT_EQ(std::string(bytes, 100).find('s'), std::string::npos);
}

TEST(Cleanse, TakesAnEmptyText) {
  std::string secret;
  Cleanse(secret);
  EXPECT_EQ(secret, "");
}

TEST(Cleanse, OverwritesEveryTextOfAValue) {
  Json::Value secret;
  secret["d"] = "private exponent";
  secret["more"]["p"] = "first prime";
  secret["list"].append("second prime");
  secret["number"] = 5;
  secret["nothing"] = Json::Value();
  const test::CleansedBytes cleansed;
  Cleanse(secret);
  EXPECT_TRUE(secret.isNull());
  EXPECT_TRUE(cleansed.Include("private exponent"));
  EXPECT_TRUE(cleansed.Include("first prime"));
  EXPECT_TRUE(cleansed.Include("second prime"));
}

TEST(Cleanse, LeavesCopiesOfAValueAlone) {
  Json::Value secret("text");
  const Json::Value copy = secret;
  Cleanse(secret);
  EXPECT_EQ(copy.asString(), "text");
}

TEST(SecretText, IsOverwrittenAtTheEndOfItsLife) {
  const test::CleansedBytes cleansed;
  {
    SecretText secret;
    secret.text = "a secret";
  }
  EXPECT_TRUE(cleansed.Include("a secret"));
}

TEST(SecretJson, IsOverwrittenAtTheEndOfItsLife) {
  const test::CleansedBytes cleansed;
  {
    SecretJson secret;
    secret.value["d"] = "a secret";
  }
  EXPECT_TRUE(cleansed.Include("a secret"));
}

}  // namespace
}  // namespace kova
