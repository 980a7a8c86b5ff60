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

TEST(Base64UrlDecode, GivesTheBytesBack) {
  for (const std::string bytes : {"", "f", "fo", "foo", "foob", "\xff\xfe\xfd\xfb"}) {
    EXPECT_EQ(Base64UrlDecode(Base64UrlEncode(bytes)), bytes);
  }
  EXPECT_EQ(Base64UrlDecode("Zg=="), "f");
  EXPECT_EQ(Base64UrlDecode("AAA"), std::string(2, '\0'));
}

TEST(Base64UrlDecode, TakesNothingElse) {
  for (const char* text : {"Z", "Zg/", "Zm9+", "Zm9v Zg", "Zm9v\n", "Z=g", "Zm9vY"}) {
    EXPECT_EQ(Base64UrlDecode(text), std::nullopt) << text;
  }
}

// RFC 7515, appendix A.1.
TEST(HmacSha256, SignsAsTheStandardDoes) {
  const std::string key =
      Base64UrlDecode(
          "AyM1SysPpbyDfgZld3umj1qzKObwVMkoqQ-EstJQLr_T-1qS0gZH75aKtMN3Yj0iPS4hcgUuTwjAzZr1Z9CAow")
          .value();
  EXPECT_EQ(HmacSha256Base64Url(
                key,
                "eyJ0eXAiOiJKV1QiLA0KICJhbGciOiJIUzI1NiJ9.eyJpc3MiOiJqb2UiLA0KICJleHAiOjEzMDA4MTkz"
                "ODAsDQogImh0dHA6Ly9leGFtcGxlLmNvbS9pc19yb290Ijp0cnVlfQ"),
            "dBjftJeZ4CVP-mB92K27uhbUJU1p1r_wW1gFWFOEjXk");
}

}  // namespace
}  // namespace kova
