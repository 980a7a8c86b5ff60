#include <filesystem>

#include "client_fixture.h"

namespace kova::test {
namespace {

constexpr char kFolder[] = "/usr/kova/etc/certificate/_archive/abc123";
constexpr char kRecord[] = "/usr/kova/etc/certificate/_archive/abc123/renew.json";
constexpr char kCertificateFile[] = "/usr/kova/etc/certificate/_archive/abc123/cert.pem";
constexpr char kPem[] =
    "-----BEGIN CERTIFICATE-----\nMII+\nA/A=\n-----END CERTIFICATE-----\n"
    "-----BEGIN CERTIFICATE-----\nMIIsecond\n-----END CERTIFICATE-----\n";

class Revocation : public ClientTest {
 protected:
  Revocation() : client_(ReadyClient()) {
    WriteFile(kCertificateFile, kPem, 0400);
    WriteFile(kRecord, "{}", 0400);
  }

  std::string Revoke() {
    return ErrorOf([this] { client_->RevokeCertificate(kFolder); });
  }

  std::unique_ptr<AcmeV2Client> client_;
};

TEST_F(Revocation, SendsTheFirstCertificateInBase64UrlWithItsPadding) {
  EXPECT_EQ(Revoke(), "nothing");
  EXPECT_THAT(ca_.Routes(), ElementsAre("POST /revoke"));
  EXPECT_EQ(ca_.Signed()[0].payload, "{\"certificate\":\"MII-A_A=\"}\n");
  EXPECT_EQ(ca_.Signed()[0].header["kid"].asString(), ca_.AccountUrl());
  EXPECT_TRUE(Verifies(ca_.Signed()[0], AccountKey()));
}

TEST_F(Revocation, AtTheCaAloneTellsAReasonAndKeepsTheRecord) {
  EXPECT_EQ(client_->RevokeAtCa(kFolder, {.reason = 4}), kPem);
  EXPECT_EQ(ca_.Signed()[0].payload, "{\"certificate\":\"MII-A_A=\",\"reason\":4}\n");
  EXPECT_TRUE(Exists(kRecord));
}

TEST_F(Revocation, RemovesTheRecordAndNothingElse) {
  WriteFile(std::string(kFolder) + "/privkey.pem", "key", 0400);
  EXPECT_EQ(Revoke(), "nothing");
  EXPECT_THAT(ListFolder(kFolder), ElementsAre("cert.pem", "privkey.pem"));
  EXPECT_EQ(ReadFile(kCertificateFile), kPem);
}

TEST_F(Revocation, TellsItsStepsAtLevelOne) {
  OutputCapture output(1);
  EXPECT_EQ(Revoke(), "nothing");
  EXPECT_THAT(output.Debug(), ElementsAre(std::string("revoke certifiaction for ") + kFolder + ".",
                                          "=========== certification info ===========", "MII-A_A=",
                                          "==========================================",
                                          "Post JWS Request: " + ca_.Url("/revoke"),
                                          "Post Request: " + ca_.Url("/revoke")));
}

TEST_F(Revocation, IsDoneWhenItWasDoneBefore) {
  ca_.Once("POST /revoke", ScriptedCa::Problem(409, "alreadyRevoked", "twice"));
  OutputCapture output(1);
  EXPECT_EQ(Revoke(), "nothing");
  EXPECT_EQ(output.Debug().back(), "Has already revoked");
  EXPECT_FALSE(Exists(kRecord));
}

TEST_F(Revocation, IsDoneWhenAProblemThatIsBelievedSaysSo) {
  ca_.Once("POST /revoke", ScriptedCa::Problem(400, "alreadyRevoked", "twice"));
  EXPECT_EQ(client_->RevokeAtCa(kFolder, {.believes_problem = true}), kPem);
  for (const HttpReply& other :
       {ScriptedCa::Problem(400, "malformed", "no"),
        ScriptedCa::Problem(403, "alreadyRevoked", "no"), HttpReply::Json(400, "[]")}) {
    ca_.Once("POST /revoke", other);
    EXPECT_THROW((void)client_->RevokeAtCa(kFolder, {.believes_problem = true}), SLError);
  }
}

TEST_F(Revocation, ThatTheCaRefusesSaysWhyAndKeepsTheRecord) {
  struct Refusal {
    HttpReply reply;
    std::string error;
  };
  const Refusal refusals[] = {
      {ScriptedCa::Problem(403, "unauthorized", "not 100% yours %s"),
       "200 client_v2: Revoke failed - 403  not 100% yours %s"},
      {ScriptedCa::Problem(400, "malformed", "no"), "200 client_v2: Revoke failed - 400  no"},
      {ScriptedCa::Problem(400, "alreadyRevoked", "twice"),
       "200 client_v2: Revoke failed - 400  twice"},
      {HttpReply::Json(500, "{}"), "200 client_v2: Revoke failed - 500  "},
      {HttpReply::Json(500, "[]"), "200 client_v2: Revoke failed - 500  "},
      {HttpReply::Json(429, R"({"detail": {}})"), "200 client_v2: Revoke failed - 429  "},
      {HttpReply::Json(202, "{}"), "200 client_v2: Revoke failed - 202  "},
      {HttpReply::Text(500, "<html>"), "200 client_network: body is not json."},
      {HttpReply::Drop(), "100 client_network: Server is not reachable."}};
  for (const Refusal& refusal : refusals) {
    client_->NewNonce();
    ca_.Once("POST /revoke", refusal.reply);
    EXPECT_EQ(Revoke(), refusal.error);
    EXPECT_TRUE(Exists(kRecord));
  }
}

TEST_F(Revocation, NeedsAPemBlock) {
  for (const char* pem : {"", "no certificate", "-----BEGIN CERTIFICATE-----\nMII\n",
                          "MII\n-----END CERTIFICATE-----\n"}) {
    WriteFile(kCertificateFile, pem);
    EXPECT_TRUE(Revoke().starts_with("std: ")) << pem;
  }
  std::filesystem::remove(kCertificateFile);
  EXPECT_THROW(client_->RevokeCertificate(kFolder), std::out_of_range);
  EXPECT_THAT(ca_.Routes(), IsEmpty());
  EXPECT_TRUE(Exists(kRecord));
}

TEST_F(Revocation, OnlyMentionsARecordThatCannotBeRemoved) {
  SyslogCapture syslog;
  std::filesystem::remove(kRecord);
  {
    OutputCapture output(1);
    EXPECT_EQ(Revoke(), "nothing");
    EXPECT_EQ(output.Debug().back(), std::string("Failed to unlink ") + kRecord + " [2]");
  }
  EXPECT_THAT(syslog.Texts(), IsEmpty());
  std::filesystem::create_directory(kRecord);
  OutputCapture output(1);
  EXPECT_EQ(Revoke(), "nothing");
  EXPECT_EQ(output.Debug().back(), std::string("Failed to unlink ") + kRecord + " [21]");
  EXPECT_THAT(syslog.Texts(),
              ElementsAre(std::string("client_v2:# Failed to unlink ") + kRecord + " [21]"));
}

}  // namespace
}  // namespace kova::test
