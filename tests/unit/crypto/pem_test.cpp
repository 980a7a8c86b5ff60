#include "crypto/pem.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace kova {
namespace {

std::string Encoded(const std::string& pem) {
  return PemToBase64Url(pem, kCertificateBegin, kCertificateEnd);
}

TEST(PemToBase64Url, DropsLineFeedsAndChangesTheAlphabet) {
  EXPECT_EQ(Encoded("-----BEGIN CERTIFICATE-----\nab+/\nCD+/\n-----END CERTIFICATE-----\n"),
            "ab-_CD-_");
}

TEST(PemToBase64Url, KeepsThePadding) {
  EXPECT_EQ(Encoded("-----BEGIN CERTIFICATE-----\nYQ==\n-----END CERTIFICATE-----\n"), "YQ==");
}

TEST(PemToBase64Url, TakesTheFirstBlock) {
  EXPECT_EQ(Encoded("junk\n-----BEGIN CERTIFICATE-----\none\n-----END CERTIFICATE-----\n"
                    "-----BEGIN CERTIFICATE-----\ntwo\n-----END CERTIFICATE-----\n"),
            "one");
}

TEST(PemToBase64Url, IgnoresAnEndThatPrecedesTheBlock) {
  EXPECT_EQ(Encoded("-----END CERTIFICATE-----\n"
                    "-----BEGIN CERTIFICATE-----\none\n-----END CERTIFICATE-----\n"),
            "one");
}

TEST(PemToBase64Url, KnowsRequests) {
  EXPECT_EQ(PemToBase64Url("-----BEGIN CERTIFICATE REQUEST-----\na+\n"
                           "-----END CERTIFICATE REQUEST-----\n",
                           kRequestBegin, kRequestEnd),
            "a-");
}

TEST(PemToBase64Url, ThrowsWhenThereIsNoBlock) {
  EXPECT_THROW(Encoded(""), std::out_of_range);
  EXPECT_THROW(Encoded("-----END CERTIFICATE-----"), std::out_of_range);
  EXPECT_THROW(Encoded("-----BEGIN CERTIFICATE-----\nabc\n"), std::out_of_range);
  EXPECT_THROW(Encoded("-----END CERTIFICATE-----\n-----BEGIN CERTIFICATE-----\nabc\n"),
               std::out_of_range);
}

}  // namespace
}  // namespace kova
