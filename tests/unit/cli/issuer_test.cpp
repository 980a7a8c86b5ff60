#include "cli/issuer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

#include "platform/process.h"
#include "syslog_capture.h"

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

}  // namespace
}  // namespace kova
