#include <gmock/gmock.h>

#include <filesystem>

#include "acme_v1/acme_v1.h"
#include "base/json.h"
#include "v1_fixture.h"

namespace kova::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kPem[] =
    "-----BEGIN CERTIFICATE-----\n+/+/\nAQ==\n-----END CERTIFICATE-----\n"
    "-----BEGIN CERTIFICATE-----\nAgAC\n-----END CERTIFICATE-----\n";

class RevokeV1Test : public V1Test {
 protected:
  RevokeV1Test() {
    MakeReady();
    WriteFile(folder_ + "/cert.pem", kPem);
    WriteFile(folder_ + "/renew.json", "{}");
  }

  void Serve(int status, const std::string& body = "") {
    server.Reset("POST /revoke-cert");
    server.On("POST /revoke-cert", Fresh(HttpReply::Text(status, body)));
  }
  std::string Failure() {
    return ErrorOf([&] { client.Revoke(folder_); });
  }
  void ExpectFolderUntouched() const {
    EXPECT_THAT(ListFolder(folder_), ElementsAre("cert.pem", "renew.json"));
    EXPECT_EQ(ReadFile(folder_ + "/cert.pem"), kPem);
  }

  const std::string folder_ = std::string(kArchive) + "/given";
};

TEST_F(RevokeV1Test, SendsTheFirstCertificateAndLeavesTheFolder) {
  Serve(200);
  EXPECT_THAT(
      StepsOf([&] { EXPECT_EQ(Failure(), "nothing"); }),
      ElementsAre("revoke certifiaction.", "Post JWS Request: " + server.Url("/revoke-cert")));
  EXPECT_EQ(Posts("POST /revoke-cert").at(0).payload_text,
            "{\"certificate\":\"-_-_AQ\",\"resource\":\"revoke-cert\"}\n");
  ExpectFolderUntouched();
}

TEST_F(RevokeV1Test, ACertificateThatIsRevokedAlreadyIsASuccess) {
  Serve(409, "not read");
  EXPECT_THAT(
      StepsOf([&] { EXPECT_EQ(Failure(), "nothing"); }),
      ElementsAre("revoke certifiaction.", "Post JWS Request: " + server.Url("/revoke-cert"),
                  "Has already revoked"));
  ExpectFolderUntouched();
}

TEST_F(RevokeV1Test, ReportsARefusalWithStatusAndDetail) {
  Serve(400, R"({"detail": "no %s"})");
  EXPECT_EQ(Failure(), "200 client_v1: Revoke failed - 400  no %s");
  Serve(500, "{}");
  EXPECT_EQ(Failure(), "200 client_v1: Revoke failed - 500  ");
  Serve(202, R"({"detail": ["x"]})");
  EXPECT_EQ(Failure(), "200 client_v1: Revoke failed - 202  ");
  Serve(403, "<html>");
  EXPECT_EQ(Failure(), "200 client_network: body is not json.");
  ExpectFolderUntouched();
}

TEST_F(RevokeV1Test, NeedsACertificate) {
  for (const char* content : {"", "no PEM", "-----BEGIN CERTIFICATE-----\nAQ=="}) {
    WriteFile(folder_ + "/cert.pem", content);
    EXPECT_THROW(client.Revoke(folder_), std::out_of_range);
  }
  std::filesystem::remove(folder_ + "/cert.pem");
  EXPECT_THROW(client.Revoke(folder_), std::out_of_range);
  EXPECT_THAT(server.Routes(), ElementsAre("GET /directory"));
}

TEST_F(RevokeV1Test, TheDoorLoadsTheAccountOfTheRecord) {
  Serve(200);
  server.ClearRequests();
  EXPECT_THAT(StepsOf([&] {
                RevokeWithAcmeV1(server.Url("/directory"), std::string(kAccountStore) + "/ready",
                                 folder_, Settings());
              }),
              ElementsAre("revoke with v1. [" + folder_ + "].",
                          "setup acme url " + server.Url("/directory"), "revoke certifiaction.",
                          "Post JWS Request: " + server.Url("/revoke-cert")));
  EXPECT_THAT(server.Routes(), ElementsAre("GET /directory", "POST /revoke-cert"));
}

TEST_F(RevokeV1Test, TheDoorNeedsTheAccount) {
  Serve(200);
  EXPECT_EQ(
      ErrorOf([&] { RevokeWithAcmeV1(server.Url("/directory"), "/nowhere", folder_, Settings()); }),
      "201 client_v1: failed to load User Account key: /nowhere/private_key.json");
  EXPECT_THAT(Posts("POST /revoke-cert"), IsEmpty());
}

}  // namespace
}  // namespace kova::test
