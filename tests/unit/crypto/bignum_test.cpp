#include <gtest/gtest.h>

#include <memory>

#include "crypto/encoding.h"
#include "libcrypto_watch.h"

namespace kova {
namespace {

std::string Decimal(const BignumPtr& number) {
  if (!number) return "none";
  const std::unique_ptr<char, void (*)(void*)> text(BN_bn2dec(number.get()),
                                                    [](void* p) { OPENSSL_free(p); });
  return text.get();
}

std::string Encoded(unsigned long word) {
  const BignumPtr number(BN_new());
  BN_set_word(number.get(), word);
  return Base64UrlEncodeBignum(*number);
}

TEST(BignumText, TurnsTheUsualExponentIntoAqabAndBack) {
  EXPECT_EQ(Encoded(65537), "AQAB");
  EXPECT_EQ(Decimal(Base64UrlDecodeBignum("AQAB")), "65537");
}

TEST(BignumText, HasMinimalLength) {
  EXPECT_EQ(Encoded(0), "");
  EXPECT_EQ(Encoded(0x7f), "fw");
  EXPECT_EQ(Encoded(0x80), "gA");        // a set top bit adds no zero byte
  EXPECT_EQ(Encoded(0x7fffff), "f___");  // nor does a clear one
  EXPECT_EQ(Encoded(0xffffff), "____");
}

TEST(BignumText, DecodesEveryLengthWithoutPadding) {
  EXPECT_EQ(Decimal(Base64UrlDecodeBignum("AQ")), "1");
  EXPECT_EQ(Decimal(Base64UrlDecodeBignum("AQA")), "256");
  EXPECT_EQ(Decimal(Base64UrlDecodeBignum("AQAA")), "65536");
  EXPECT_EQ(Decimal(Base64UrlDecodeBignum("AQAAAA")), "16777216");
}

TEST(BignumText, DecodesTheUrlAlphabet) {
  EXPECT_EQ(Decimal(Base64UrlDecodeBignum("____")), "16777215");
  EXPECT_EQ(Decimal(Base64UrlDecodeBignum("-_-_")), "16515007");
}

TEST(BignumText, DecodesLeadingZeroBytes) {
  EXPECT_EQ(Decimal(Base64UrlDecodeBignum("AAAAAQ")), "1");
  EXPECT_EQ(Decimal(Base64UrlDecodeBignum("AA")), "0");
}

TEST(BignumText, HasNoNumberForWhatDoesNotDecode) {
  EXPECT_EQ(Decimal(Base64UrlDecodeBignum("")), "none");
  EXPECT_EQ(Decimal(Base64UrlDecodeBignum("!!!!")), "none");
  EXPECT_EQ(Decimal(Base64UrlDecodeBignum("AQAB!AQAB")), "none");
  EXPECT_EQ(Decimal(Base64UrlDecodeBignum("AQ\nAB")), "none");
  EXPECT_EQ(Decimal(Base64UrlDecodeBignum(std::string("AQ\0B", 4))), "none");
  EXPECT_EQ(Decimal(Base64UrlDecodeBignum("caf\xc3\xa9")), "none");
}

TEST(BignumText, DecodesWhatItEncoded) {
  for (int bits : {1, 7, 8, 9, 255, 256, 2047, 2048, 4096, 16384}) {
    const BignumPtr number(BN_new());
    ASSERT_EQ(BN_rand(number.get(), bits, BN_RAND_TOP_ONE, BN_RAND_BOTTOM_ANY), 1);
    const BignumPtr again = Base64UrlDecodeBignum(Base64UrlEncodeBignum(*number));
    ASSERT_TRUE(again);
    EXPECT_EQ(BN_cmp(number.get(), again.get()), 0) << bits;
  }
}

TEST(BignumText, OverwritesItsBuffers) {
  const std::string secret = "c2VjcmV0IG51bWJlcg";
  const test::CleansedBytes cleansed;
  const BignumPtr number = Base64UrlDecodeBignum(secret);
  EXPECT_TRUE(cleansed.Include(secret));
  EXPECT_TRUE(cleansed.Include("secret number"));
}

TEST(BignumText, OverwritesTheBytesOfANumberThatItEncodes) {
  const BignumPtr number = Base64UrlDecodeBignum("c2VjcmV0IG51bWJlcg");
  const test::CleansedBytes cleansed;
  EXPECT_EQ(Base64UrlEncodeBignum(*number), "c2VjcmV0IG51bWJlcg");
  EXPECT_TRUE(cleansed.Include("secret number"));
}

}  // namespace
}  // namespace kova
