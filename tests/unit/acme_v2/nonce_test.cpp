#include "client_fixture.h"

namespace kova::test {
namespace {

HttpReply WithNonce(int status, const std::string& nonce, const std::string& body = "{}") {
  return HttpReply::Json(status, body, {"Replay-Nonce: " + nonce});
}

class Nonces : public ClientTest {
 protected:
  // The nonces of the signed requests so far.
  [[nodiscard]] std::vector<std::string> Used() const {
    std::vector<std::string> used;
    for (const Jws& request : ca_.Signed()) used.push_back(request.header["nonce"].asString());
    return used;
  }
};

TEST_F(Nonces, AreFetchedWithAGet) {
  AcmeV2Client client(ca_.DirectoryUrl(), Settings::Read());
  client.SetupDirectory();
  client.NewNonce();
  EXPECT_THAT(ca_.Routes(), ElementsAre("GET /directory", "GET /new-nonce"));
  EXPECT_EQ(client.TakeNonce(), "nonce-2");
  EXPECT_EQ(client.TakeNonce(), "nonce-1");
}

TEST_F(Nonces, AreTakenFromANewNonceReplyOfAnyStatus) {
  AcmeV2Client client(ca_.DirectoryUrl(), Settings::Read());
  client.SetupDirectory();
  for (const int status : {200, 204, 400, 404, 500}) {
    const std::string nonce = "of-" + std::to_string(status);
    ca_.Once("GET /new-nonce", WithNonce(status, nonce, "not JSON"));
    client.NewNonce();
    EXPECT_EQ(client.TakeNonce(), nonce);
  }
}

TEST_F(Nonces, MayBeMissingFromANewNonceReply) {
  AcmeV2Client client(ca_.DirectoryUrl(), Settings::Read());
  ca_.StopNonces();
  client.SetupDirectory();
  client.NewNonce();
  ca_.Once("GET /new-nonce", HttpReply::Text(204, "", {"Replay-Nonce: "}));
  client.NewNonce();
  ca_.Once("GET /new-nonce", HttpReply::Text(204, "", {"replay-nonce: lower-case"}));
  client.NewNonce();
  EXPECT_EQ(ErrorOf([&] { client.TakeNonce(); }), "204 client_v2: No Nonce.... Not Yet implement");
}

TEST_F(Nonces, CannotBeFetchedWithoutADirectory) {
  AcmeV2Client client(ca_.DirectoryUrl(), Settings::Read());
  EXPECT_EQ(ErrorOf([&] { client.NewNonce(); }), "100 client_network: Server is not reachable.");
}

TEST_F(Nonces, AreUsedNewestFirst) {
  const auto client = ReadyClient();
  client->NewNonce();
  client->NewNonce();
  for (const char* nonce : {"a", "b"}) ca_.Once("POST /x", WithNonce(200, nonce));
  client->PostJws(ca_.Url("/x"), Json::Value());
  client->PostAsGet(ca_.Url("/x"));
  EXPECT_THAT(Used(), ElementsAre("nonce-3", "a"));
  EXPECT_EQ(client->TakeNonce(), "b");
  EXPECT_EQ(client->TakeNonce(), "nonce-2");
  EXPECT_EQ(client->TakeNonce(), "nonce-1");
}

TEST_F(Nonces, AreKeptFromRepliesOfEveryStatus) {
  const auto client = ReadyClient();
  for (const int status : {200, 201, 400, 403, 429, 500}) {
    const std::string nonce = "of-" + std::to_string(status);
    ca_.Once("POST /x", WithNonce(status, nonce));
    EXPECT_EQ(client->PostJws(ca_.Url("/x"), Json::Value()).status, status);
    EXPECT_EQ(client->TakeNonce(), nonce);
    client->NewNonce();
  }
}

TEST_F(Nonces, ThatHaveRunOutAreNotFetchedByTheClient) {
  const auto client = ReadyClient();
  ca_.StopNonces();
  client->PostAsGet(ca_.Url("/x"));
  const auto post = [&] { client->PostJws(ca_.Url("/x"), Json::Value()); };
  EXPECT_EQ(ErrorOf(post), "204 client_v2: No Nonce.... Not Yet implement");
  const auto get = [&] { client->PostAsGet(ca_.Url("/x")); };
  EXPECT_EQ(ErrorOf(get), "204 client_v2: No Nonce.... Not Yet implement");
  EXPECT_THAT(ca_.Routes(), ElementsAre("POST /x"));
}

TEST_F(Nonces, AreMissingWithoutANewNonceCall) {
  ca_.StopNonces();
  AcmeV2Client client(ca_.DirectoryUrl(), Settings::Read());
  client.SetupDirectory();
  client.LoadAccount(CreateAccountFolder("client_v2", AccountInfo(), AccountKey()));
  EXPECT_EQ(ErrorOf([&] { client.NewOrder({"a.example"}); }),
            "204 client_v2: No Nonce.... Not Yet implement");
}

TEST_F(Nonces, AreRefilledOnceWithTheSettingsLeave) {
  WriteFile(kSettingsFile, R"({"noncerefill": true})");
  const auto client = ReadyClient();
  client->TakeNonce();
  ca_.Once("POST /x", HttpReply::Json(200, "{}", {"Replay-Nonce: "}));
  client->PostAsGet(ca_.Url("/x"));
  client->PostAsGet(ca_.Url("/x"));
  client->PostAsGet(ca_.Url("/x"));
  EXPECT_THAT(ca_.Routes(),
              ElementsAre("GET /new-nonce", "POST /x", "GET /new-nonce", "POST /x", "POST /x"));
  EXPECT_THAT(Used(), ElementsAre("nonce-2", "nonce-3", "nonce-4"));
}

TEST_F(Nonces, MayBeMissingFromTheRefillToo) {
  WriteFile(kSettingsFile, R"({"noncerefill": true})");
  const auto client = ReadyClient();
  client->TakeNonce();
  ca_.StopNonces();
  EXPECT_EQ(ErrorOf([&] { client->PostAsGet(ca_.Url("/x")); }),
            "204 client_v2: No Nonce.... Not Yet implement");
  EXPECT_THAT(ca_.Routes(), ElementsAre("GET /new-nonce"));
}

TEST_F(Nonces, ThatCannotBeRefilledLendNoOlderPause) {
  WriteFile(kSettingsFile, R"({"noncerefill": true})");
  const auto client = ReadyClient();
  ca_.Once("POST /x", HttpReply::Json(503, "{}", {"Retry-After: 9", "Replay-Nonce: "}));
  client->PostAsGet(ca_.Url("/x"));
  EXPECT_EQ(client->RetryDelay(), Seconds(9));
  for (const HttpReply& refill :
       {HttpReply::Text(503, "", {"Replay-Nonce: "}), HttpReply::Drop()}) {
    ca_.Once("GET /new-nonce", refill);
    EXPECT_NE(ErrorOf([&] { client->PostAsGet(ca_.Url("/x")); }), "nothing");
    EXPECT_EQ(client->RetryDelay(), Seconds(2));
  }
}

TEST_F(Nonces, AreRefilledBetweenAttemptsAsWell) {
  WriteFile(kSettingsFile, R"({"noncerefill": true})");
  const auto client = ReadyClient();
  HttpReply bad_nonce = ScriptedCa::Problem(400, "badNonce", "stale");
  bad_nonce.headers.emplace_back("Replay-Nonce: ");
  ca_.Once("POST /x", bad_nonce);
  ca_.Once("POST /x", HttpReply::Json(200, "{}"));
  EXPECT_EQ(client->PostAsGet(ca_.Url("/x")).status, 200);
  EXPECT_THAT(ca_.Routes(), ElementsAre("POST /x", "GET /new-nonce", "POST /x"));
}

TEST_F(Nonces, AreNotRefilledByASettingOfAnotherType) {
  for (const char* settings : {R"({"noncerefill": false})", R"({"noncerefill": 1})",
                               R"({"noncerefill": "true"})", "{}", "[]"}) {
    WriteFile(kSettingsFile, settings);
    const auto client = ReadyClient();
    client->TakeNonce();
    EXPECT_EQ(ErrorOf([&] { client->PostAsGet(ca_.Url("/x")); }),
              "204 client_v2: No Nonce.... Not Yet implement")
        << settings;
    EXPECT_THAT(ca_.Routes(), IsEmpty()) << settings;
  }
}

TEST_F(Nonces, AreNotRefilledByTakingOne) {
  WriteFile(kSettingsFile, R"({"noncerefill": true})");
  const auto client = ReadyClient();
  client->TakeNonce();
  EXPECT_EQ(ErrorOf([&] { client->TakeNonce(); }), "204 client_v2: No Nonce.... Not Yet implement");
}

}  // namespace
}  // namespace kova::test
