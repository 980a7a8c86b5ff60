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
  EXPECT_THROW(Encoded("-----BEGIN A CERTIFICATE-----\nabc\n-----END CERTIFICATE-----\n"),
               std::out_of_range);
  EXPECT_THROW(Encoded("-----BEGIN CERTIFICATE-----\nabc\n"), std::out_of_range);
  EXPECT_THROW(Encoded("-----END CERTIFICATE-----\n-----BEGIN CERTIFICATE-----\nabc\n"),
               std::out_of_range);
}

std::string SelfSignedDer() {
  const EvpPkeyPtr pkey(EVP_RSA_gen(2048));
  const X509Ptr certificate(X509_new());
  ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), 7);
  X509_gmtime_adj(X509_getm_notBefore(certificate.get()), 0);
  X509_gmtime_adj(X509_getm_notAfter(certificate.get()), 3600);
  X509_set_pubkey(certificate.get(), pkey.get());
  X509_sign(certificate.get(), pkey.get(), EVP_sha256());
  unsigned char* bytes = nullptr;
  const int length = i2d_X509(certificate.get(), &bytes);
  std::string der(reinterpret_cast<char*>(bytes), static_cast<size_t>(length));
  OPENSSL_free(bytes);
  return der;
}

TEST(DerToPem, WritesTheCertificate) {
  const std::string der = SelfSignedDer();
  const std::string pem = DerToPem(der);
  EXPECT_EQ(pem.find("-----BEGIN CERTIFICATE-----\nMII"), 0U);
  EXPECT_EQ(pem.substr(pem.size() - 27), "\n-----END CERTIFICATE-----\n");
  const X509Ptr certificate(ReadCertificate(*PemSource(pem)));
  ASSERT_TRUE(certificate);
  EXPECT_EQ(ASN1_INTEGER_get(X509_get0_serialNumber(certificate.get())), 7);
}

TEST(DerToPem, GivesNothingForOtherBytes) {
  EXPECT_EQ(DerToPem(""), "");
  EXPECT_EQ(DerToPem("<html>no</html>"), "");
  EXPECT_EQ(DerToPem(std::string(1000, '\0')), "");
  EXPECT_EQ(DerToPem(std::string("\x30\x84\xff\xff\xff\xff", 6)), "");
  EXPECT_EQ(DerToPem("-----BEGIN CERTIFICATE-----\nMII\n-----END CERTIFICATE-----\n"), "");
}

TEST(DerToPem, GivesNothingForACertificateCutAnywhere) {
  const std::string der = SelfSignedDer();
  for (size_t length = 0; length < der.size(); ++length) {
    ASSERT_EQ(DerToPem(der.substr(0, length)), "") << length;
  }
}

}  // namespace
}  // namespace kova
