#include <gmock/gmock.h>

#include "../crypto/known_keys.h"
#include "base/json.h"
#include "v1_fixture.h"

namespace kova::test {
namespace {

using testing::ElementsAre;

class ClientV1Test : public V1Test {};

constexpr char kNoNonce[] = "204 client_v1: No Nonce.... Not Yet implement";
constexpr char kMemberMissing[] = "200 client_v1: Directory Member missing.";

Json::Value Payload() {
  Json::Value payload(Json::objectValue);
  payload["resource"] = "new-reg";
  payload["contact"].append("mailto:me@mail.example");
  return payload;
}

TEST_F(ClientV1Test, FetchesTheDirectoryOnce) {
  ServeDirectory();
  EXPECT_THAT(StepsOf([&] { client.FetchDirectory(); }),
              ElementsAre("setup acme url " + server.Url("/directory")));
  EXPECT_THAT(server.Routes(), ElementsAre("GET /directory"));
}

TEST_F(ClientV1Test, RefusesADirectoryThatLacksAResource) {
  for (const char* missing : {"new-authz", "new-cert", "new-reg", "revoke-cert"}) {
    Json::Value directory(Json::objectValue);
    for (const char* name : {"new-authz", "new-cert", "new-reg", "revoke-cert"}) {
      if (std::string(name) != missing) directory[name] = server.Url("/x");
    }
    server.Reset("GET /directory");
    server.On("GET /directory", HttpReply::Json(200, JsonToString(directory)));
    EXPECT_EQ(ErrorOf([&] { client.FetchDirectory(); }), kMemberMissing) << missing;
  }
}

TEST_F(ClientV1Test, RefusesADirectoryOfAnotherShape) {
  for (const char* body : {"[]", "null", "5", R"("text")", "[[1],[2]]"}) {
    server.Reset("GET /directory");
    server.On("GET /directory", HttpReply::Json(200, body));
    EXPECT_EQ(ErrorOf([&] { client.FetchDirectory(); }), kMemberMissing) << body;
  }
}

TEST_F(ClientV1Test, RefusesAResourceThatIsNoText) {
  for (const char* member : {"new-authz", "new-cert", "new-reg", "revoke-cert"}) {
    for (const Json::Value& value :
         {Json::Value(), Json::Value(1), Json::Value(true), Json::Value(Json::arrayValue),
          Json::Value(Json::objectValue)}) {
      Json::Value directory(Json::objectValue);
      for (const char* name : {"new-authz", "new-cert", "new-reg", "revoke-cert"}) {
        directory[name] = server.Url("/x");
      }
      directory[member] = value;
      server.Reset("GET /directory");
      server.On("GET /directory", HttpReply::Json(200, JsonToString(directory)));
      EXPECT_EQ(ErrorOf([&] { client.FetchDirectory(); }), kMemberMissing) << member;
    }
  }
}

TEST_F(ClientV1Test, RefusesADirectoryThatIsNotJson) {
  for (const std::string& body : {std::string("<html>"), std::string(), std::string(100000, '[')}) {
    server.Reset("GET /directory");
    server.On("GET /directory", HttpReply::Text(200, body));
    EXPECT_EQ(ErrorOf([&] { client.FetchDirectory(); }), "200 client_network: body is not json.");
  }
}

TEST_F(ClientV1Test, JudgesTheDirectoryByItsContentAlone) {
  ServeDirectory();
  HttpReply reply = HttpReply::Json(
      503, R"({"new-authz": "a", "new-cert": "b", "new-reg": "c", "revoke-cert": "d"})");
  server.Reset("GET /directory");
  server.On("GET /directory", reply);
  EXPECT_EQ(ErrorOf([&] { client.FetchDirectory(); }), "nothing");
}

TEST_F(ClientV1Test, ReportsAServerThatCannotBeReached) {
  server.On("GET /directory", HttpReply::Drop());
  EXPECT_EQ(ErrorOf([&] { client.FetchDirectory(); }),
            "100 client_network: Server is not reachable.");
}

TEST_F(ClientV1Test, ADirectoryWithoutANonceLeavesThePoolEmpty) {
  ServeDirectory();
  client.LoadAccountKey(StoreAccount("a", AccountInfo()));
  server.Reset("GET /directory");
  server.On("GET /directory", HttpReply::Json(200, R"({"new-authz": "a", "new-cert": "b",
                                                      "new-reg": "c", "revoke-cert": "d"})"));
  client.FetchDirectory();
  EXPECT_EQ(ErrorOf([&] { client.PostJws(server.Url("/new-reg"), Payload()); }), kNoNonce);
  EXPECT_THAT(server.Routes(), ElementsAre("GET /directory"));
}

TEST_F(ClientV1Test, KeepsTheNonceOfADirectoryThatItRefuses) {
  server.On("GET /directory", HttpReply::Text(200, "<html>", {"Replay-Nonce: kept"}));
  EXPECT_EQ(ErrorOf([&] { client.FetchDirectory(); }), "200 client_network: body is not json.");
  EXPECT_EQ(client.TakeNonce(), "kept");
}

TEST_F(ClientV1Test, UsesTheNewestNonceFirst) {
  server.On("GET /directory", HttpReply::Json(200, "[]", {"Replay-Nonce: older"}));
  server.On("GET /directory", HttpReply::Json(200, "[]", {"Replay-Nonce: newer"}));
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(ErrorOf([&] { client.FetchDirectory(); }), kMemberMissing);
  }
  EXPECT_EQ(client.TakeNonce(), "newer");
  EXPECT_EQ(client.TakeNonce(), "older");
  EXPECT_EQ(ErrorOf([&] { client.TakeNonce(); }), kNoNonce);
}

TEST_F(ClientV1Test, TakesNoNonceFromAHeaderOfAnotherCaseOrOfNoValue) {
  server.On("GET /directory", HttpReply::Json(200, "[]", {"replay-nonce: lower"}));
  server.On("GET /directory", HttpReply::Json(200, "[]", {"Replay-Nonce: "}));
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(ErrorOf([&] { client.FetchDirectory(); }), kMemberMissing);
  }
  EXPECT_EQ(ErrorOf([&] { client.TakeNonce(); }), kNoNonce);
}

TEST_F(ClientV1Test, SignsNothingWithoutAKey) {
  ServeDirectory();
  client.FetchDirectory();
  const auto post = [&] { client.PostJws(server.Url("/new-reg"), Payload()); };
  EXPECT_EQ(ErrorOf(post), "201 client_v1: RSA Key not found.");
  // The nonce was taken before the key was asked for.
  EXPECT_EQ(ErrorOf(post), kNoNonce);
  EXPECT_THAT(server.Routes(), ElementsAre("GET /directory"));
}

TEST_F(ClientV1Test, SignsTheProtectedNonceAndThePayload) {
  MakeReady();
  server.On("POST /new-reg", HttpReply::Json(201, "{}"));
  EXPECT_EQ(client.PostJws(server.Url("/new-reg"), Payload()).status, 201);

  const HttpRequest request = server.Requests().back();
  EXPECT_EQ(request.Header("Content-Type"), "application/jose+json");
  const SignedBody body(request);
  EXPECT_EQ(body.protected_text, "{\"nonce\":\"nonce1\"}\n");
  EXPECT_EQ(body.payload_text,
            "{\"contact\":[\"mailto:me@mail.example\"],\"resource\":\"new-reg\"}\n");
  EXPECT_TRUE(Verifies(body.jws, Rfc7515Key()));
  EXPECT_TRUE(request.body.starts_with(
      std::string(R"({"header":{"alg":"RS256","jwk":{"e":"AQAB","kty":"RSA","n":")") +
      kRfc7515Modulus + R"("}},"payload":")"))
      << request.body;
  EXPECT_THAT(body.document.getMemberNames(),
              ElementsAre("header", "payload", "protected", "signature"));
}

TEST_F(ClientV1Test, UsesTheNonceOfTheLastReply) {
  MakeReady();
  server.On("POST /x", FreshJson(200, "{}"));
  server.On("POST /x", FreshJson(500, "{}"));
  server.On("POST /x", HttpReply::Json(200, "{}"));
  for (int i = 0; i < 3; ++i) client.PostJws(server.Url("/x"), Payload());
  std::vector<std::string> used;
  for (const SignedBody& body : Posts("POST /x")) used.push_back(body.protected_text);
  EXPECT_THAT(used, ElementsAre("{\"nonce\":\"nonce1\"}\n", "{\"nonce\":\"nonce2\"}\n",
                                "{\"nonce\":\"nonce3\"}\n"));
  EXPECT_EQ(ErrorOf([&] { client.PostJws(server.Url("/x"), Payload()); }), kNoNonce);
}

TEST_F(ClientV1Test, DoesNotRepeatARequestWhoseNonceWasRefused) {
  MakeReady();
  server.On("POST /x", FreshJson(400, R"({"type": "urn:acme:error:badNonce"})"));
  const HttpResponse response = client.PostJws(server.Url("/x"), Payload());
  EXPECT_EQ(response.status, 400);
  EXPECT_EQ(Posts("POST /x").size(), 1U);
}

TEST_F(ClientV1Test, TellsOfItsRequestsAndAtTheSecondLevelOfTheirPayload) {
  MakeReady();
  server.On("POST /x", FreshJson(200, "{}"));
  const auto post = [&] { client.PostJws(server.Url("/x"), Payload()); };
  EXPECT_THAT(StepsOf(post), ElementsAre("Post JWS Request: " + server.Url("/x")));
  const std::vector<std::string> detailed = StepsOf(post, 2);
  EXPECT_THAT(detailed, testing::IsSupersetOf({"Post JWS Request: " + server.Url("/x"),
                                               std::string("Post JWS value: {")}));
}

TEST_F(ClientV1Test, EncodesPemWithoutPadding) {
  EXPECT_EQ(UnpaddedBase64Url("x-BEGIN-\n+/+/\nAA==\n-END-", "-BEGIN-", "-END-"), "-_-_AA");
  EXPECT_THROW(UnpaddedBase64Url("no block", "-BEGIN-", "-END-"), std::out_of_range);
}

}  // namespace
}  // namespace kova::test
