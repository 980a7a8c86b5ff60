#include <gtest/gtest.h>

#include <array>

#include "base/sl_error.h"
#include "crypto/encoding.h"
#include "libcrypto_watch.h"

namespace kova {
namespace {

std::string Hex(const std::string& text) {
  std::array<unsigned char, 32> digest{};
  Sha256(reinterpret_cast<const unsigned char*>(text.data()), text.size(), digest.data());
  std::string hex;
  for (const unsigned char byte : digest) {
    hex += "0123456789abcdef"[byte >> 4];
    hex += "0123456789abcdef"[byte & 15];
  }
  return hex;
}

TEST(Sha256, GivesThePublishedDigests) {
  EXPECT_EQ(Hex(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_EQ(Hex("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

TEST(Sha256, TakesNulBytes) {
  EXPECT_EQ(Hex(std::string(1, '\0')),
            "6e340b9cffb37a989ca544e6bb780a2c78901d3fb33738768511a30617afa01d");
}

TEST(Sha256Base64Url, IsTheUnpaddedTextOfTheDigest) {
  EXPECT_EQ(Sha256Base64Url("abc"), "ungWv48Bz-pBQUDeXa4iI7ADYaOWF3qctBD_YfIAFa0");
}

TEST(Sha256, SaysWhenThereIsNoDigest) {
  const test::NoAlgorithms none;
  for (const auto& digest : {Sha256Base64Url, +[](const std::string& text) {
                               return HmacSha256Base64Url("key", text);
                             }}) {
    try {
      digest("abc");
      ADD_FAILURE() << "no error";
    } catch (const SLError& error) {
      EXPECT_EQ(error.code, 201);
      EXPECT_EQ(error.message, "SHA-256 failed.");
      EXPECT_EQ(error.file, "rsa");
    }
  }
}

}  // namespace
}  // namespace kova
