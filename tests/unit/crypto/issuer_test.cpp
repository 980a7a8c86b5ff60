#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/x509.h>
#include <pty.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>

#include "crypto/certificate.h"
#include "crypto/encoding.h"
#include "crypto/pem.h"
#include "platform/process.h"
#include "syslog_capture.h"

namespace {

enum class Missing { kNothing, kBio, kIssuer, kData };
Missing missing = Missing::kNothing;  // what the library does not give

}  // namespace

// The linker sends the product's calls of these here.
extern "C" {
BIO* __real_BIO_new(const BIO_METHOD* method);   // NOLINT
BIO* __wrap_BIO_new(const BIO_METHOD* method) {  // NOLINT
  return missing == Missing::kBio ? nullptr : __real_BIO_new(method);
}
X509_NAME* __real_X509_get_issuer_name(const X509* certificate);   // NOLINT
X509_NAME* __wrap_X509_get_issuer_name(const X509* certificate) {  // NOLINT
  return missing == Missing::kIssuer ? nullptr : __real_X509_get_issuer_name(certificate);
}
ASN1_STRING* __real_X509_NAME_ENTRY_get_data(const X509_NAME_ENTRY* entry);   // NOLINT
ASN1_STRING* __wrap_X509_NAME_ENTRY_get_data(const X509_NAME_ENTRY* entry) {  // NOLINT
  return missing == Missing::kData ? nullptr : __real_X509_NAME_ENTRY_get_data(entry);
}
}

namespace kova {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

const std::string kPath = "/run/issuer-test.pem";

void MakeCertificate(const std::string& subject) {
  ASSERT_EQ(KLIBCExecl("/usr/bin/openssl", kKovaExecTool,
                       {"req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", "/dev/null",
                        "-out", kPath, "-subj", subject}),
            0);
}

TEST(IssuerTest, ItIsTheOrganisationOfTheIssuer) {
  test::SyslogCapture syslog;
  MakeCertificate("/C=US/O=Let's Encrypt/O=Second/CN=R3");
  EXPECT_EQ(IssuerOrganization(kPath), "Let's Encrypt");
  EXPECT_THAT(syslog.Texts(), IsEmpty());
}

TEST(IssuerTest, ACertificateWithoutOneIsLogged) {
  test::SyslogCapture syslog;
  MakeCertificate("/CN=R3");
  EXPECT_EQ(IssuerOrganization(kPath), "");
  EXPECT_THAT(syslog.Texts(),
              ElementsAre("utils:# get x509 issuer entry failed. [" + kPath + "]: []"));
}

TEST(IssuerTest, WhatTheLibraryDoesNotGiveIsLogged) {
  test::SyslogCapture syslog;
  MakeCertificate("/O=Let's Encrypt/CN=R3");
  for (const Missing what : {Missing::kBio, Missing::kIssuer, Missing::kData}) {
    missing = what;
    EXPECT_EQ(IssuerOrganization(kPath), "");
  }
  missing = Missing::kNothing;
  EXPECT_THAT(
      syslog.Texts(),
      ElementsAre("utils:# BIO_new failed.", "utils:# get issuer name failed. [" + kPath + "]: []",
                  "utils:# get x509 issuer entry data failed. [" + kPath + "]: []"));
}

TEST(BignumText, HasNoNumberForWhatCannotBeDecoded) {
  missing = Missing::kBio;
  EXPECT_EQ(Base64UrlDecodeBignum("AQAB"), nullptr);
  missing = Missing::kNothing;
}

TEST(IssuerTest, AMissingFileIsLogged) {
  test::SyslogCapture syslog;
  EXPECT_EQ(IssuerOrganization("/run/missing.pem"), "");
  EXPECT_THAT(syslog.Texts(),
              ElementsAre("utils:# fopen failed. [No such file or directory][/run/missing.pem]"));
}

TEST(IssuerTest, AFileThatIsNoCertificateIsLoggedWithTheReason) {
  test::SyslogCapture syslog;
  std::ofstream(kPath) << "nothing";
  EXPECT_EQ(IssuerOrganization(kPath), "");
  ASSERT_EQ(syslog.Texts().size(), 1U);
  EXPECT_THAT(syslog.Texts()[0], StartsWith("utils:# read x509 failed. [" + kPath + "]: ["));
  EXPECT_NE(syslog.Texts()[0].find("no start line"), std::string::npos);
}

TEST(IssuerTest, ErrorsOfEarlierCallsAreNotItsOwn) {
  test::SyslogCapture syslog;
  MakeCertificate("/CN=R3");
  EXPECT_EQ(DerToPem("no certificate"), "");
  ASSERT_NE(ERR_peek_error(), 0U);
  EXPECT_EQ(IssuerOrganization(kPath), "");
  EXPECT_THAT(syslog.Texts(),
              ElementsAre("utils:# get x509 issuer entry failed. [" + kPath + "]: []"));
}

TEST(IssuerTest, ErrorsOfEarlierCallsAreNoReasonOfItsFailure) {
  test::SyslogCapture syslog;
  std::ofstream(kPath) << "nothing";
  EXPECT_EQ(IssuerOrganization(kPath), "");
  EXPECT_EQ(DerToPem("no certificate"), "");
  EXPECT_EQ(IssuerOrganization(kPath), "");
  ASSERT_EQ(syslog.Texts().size(), 2U);
  EXPECT_EQ(syslog.Texts()[1], syslog.Texts()[0]);
}

TEST(IssuerTest, APipeIsNotWaitedFor) {
  test::SyslogCapture syslog;
  unlink(kPath.c_str());
  ASSERT_EQ(mkfifo(kPath.c_str(), 0600), 0);
  EXPECT_EQ(IssuerOrganization(kPath), "");
  unlink(kPath.c_str());
  EXPECT_THAT(syslog.Texts(),
              ElementsAre("utils:# fopen failed. [Invalid argument][" + kPath + "]"));
}

// What a reader of PEM with its default pass-phrase callback would stop at, waiting for an answer.
constexpr char kEncrypted[] =
    "-----BEGIN CERTIFICATE-----\nProc-Type: 4,ENCRYPTED\n"
    "DEK-Info: AES-256-CBC,00112233445566778899AABBCCDDEEFF\n\n"
    "AAAAAAAAAAAAAAAAAAAAAA==\n-----END CERTIFICATE-----\n";

TEST(IssuerTest, AsksNobodyForAPassPhrase) {
  std::ofstream(kPath) << kEncrypted;
  int terminal = -1;
  const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
  if (child == 0) _exit(IssuerOrganization(kPath).empty() ? 0 : 1);
  char question[64] = {};
  const ssize_t asked = read(terminal, question, sizeof question - 1);  // ends with the child
  close(terminal);
  kill(child, SIGKILL);
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_LE(asked, 0) << question;
  EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace kova
