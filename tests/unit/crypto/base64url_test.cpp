#include <gtest/gtest.h>

#include <array>

#include "crypto/encoding.h"

namespace kova {
namespace {

TEST(Base64UrlEncode, LeavesThePaddingOut) {
  // RFC 4648, section 10.
  EXPECT_EQ(Base64UrlEncode(""), "");
  EXPECT_EQ(Base64UrlEncode("f"), "Zg");
  EXPECT_EQ(Base64UrlEncode("fo"), "Zm8");
  EXPECT_EQ(Base64UrlEncode("foo"), "Zm9v");
  EXPECT_EQ(Base64UrlEncode("foob"), "Zm9vYg");
  EXPECT_EQ(Base64UrlEncode("fooba"), "Zm9vYmE");
  EXPECT_EQ(Base64UrlEncode("foobar"), "Zm9vYmFy");
}

TEST(Base64UrlEncode, UsesTheUrlAlphabet) {
  const std::array<unsigned char, 6> bytes = {0xfb, 0xef, 0xbe, 0xff, 0xff, 0xff};
  EXPECT_EQ(Base64UrlEncode(bytes.data(), bytes.size()), "----____");
}

TEST(Base64UrlEncode, TakesEveryByte) {
  EXPECT_EQ(Base64UrlEncode(std::string("\0\0\0\0", 4)), "AAAAAA");
  EXPECT_EQ(Base64UrlEncode(std::string("a\0\xff", 3)), "YQD_");
}

TEST(Base64UrlEncode, WritesLongInputOnOneLine) {
  const std::string text = Base64UrlEncode(std::string(30000, 'a'));
  EXPECT_EQ(text.size(), 40000U);
  EXPECT_EQ(text.find_first_not_of("YWFh"), std::string::npos);
}

TEST(ToBase64UrlAlphabet, LeavesPaddingAlone) {
  std::string text = "a+b/c+/==";
  ToBase64UrlAlphabet(text);
  EXPECT_EQ(text, "a-b_c-_==");
}

}  // namespace
}  // namespace kova
