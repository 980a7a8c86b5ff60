#include "client_fixture.h"

namespace kova::test {
namespace {

Json::Value Payload() {
  Json::Value payload(Json::objectValue);
  payload["b"] = "caf\xc3\xa9 / \"x\"";
  payload["a"].append(1);
  return payload;
}

class SignedRequests : public ClientTest {
 protected:
  SignedRequests() : url_(ca_.Url("/x")) {}

  void AnswerBadNonce(int times) {
    ca_.Once("POST /x", ScriptedCa::Problem(400, "badNonce", "stale"), times);
  }

  std::string url_;
};

TEST_F(SignedRequests, CarryHeaderPayloadAndSignature) {
  const auto client = ReadyClient();
  ca_.Always("POST /x", HttpReply::Text(200, "answer", {"X-Answer: 1"}));
  const HttpResponse response = client->PostJws(url_, Payload());
  EXPECT_EQ(response.status, 200);
  EXPECT_EQ(response.body, "answer");
  EXPECT_NE(response.header.find("X-Answer: 1\r\n"), std::string::npos);

  ASSERT_EQ(ca_.Signed().size(), 1U);
  const Jws request = ca_.Signed()[0];
  EXPECT_EQ(request.header_text, R"({"alg":"RS256","kid":")" + ca_.AccountUrl() +
                                     R"(","nonce":"nonce-1","url":")" + url_ + "\"}\n");
  EXPECT_EQ(request.payload, "{\"a\":[1],\"b\":\"caf\\u00e9 / \\\"x\\\"\"}\n");
  EXPECT_TRUE(Verifies(request, AccountKey()));
}

TEST_F(SignedRequests, AreSentAsCompactJson) {
  const auto client = ReadyClient();
  client->PostJws(url_, Payload());
  const HttpRequest request = ca_.Requests("POST /x").at(0);
  const Jws jws = ReadJws(request.body);
  const size_t dot = jws.signing_input.find('.');
  EXPECT_EQ(request.body, R"({"payload":")" + jws.signing_input.substr(dot + 1) +
                              R"(","protected":")" + jws.signing_input.substr(0, dot) +
                              R"(","signature":")" + jws.signature + "\"}");
  EXPECT_EQ(request.Header("Content-Type"), "application/jose+json");
}

TEST_F(SignedRequests, WithoutPayloadSignAnEmptyOne) {
  const auto client = ReadyClient();
  client->PostAsGet(url_);
  const Jws request = ca_.Signed().at(0);
  EXPECT_NE(ca_.Requests("POST /x")[0].body.find(R"("payload":"")"), std::string::npos);
  EXPECT_EQ(request.signing_input.back(), '.');
  EXPECT_EQ(request.header["kid"].asString(), ca_.AccountUrl());
  EXPECT_TRUE(Verifies(request, AccountKey()));
}

TEST_F(SignedRequests, OfAnEmptyObjectHaveAPayload) {
  const auto client = ReadyClient();
  client->PostJws(url_, Json::Value(Json::objectValue));
  EXPECT_EQ(ca_.Signed().at(0).payload, "{}\n");
}

TEST_F(SignedRequests, ShowTheKeyAsLongAsThereIsNoAccount) {
  AcmeV2Client client(ca_.DirectoryUrl(), Settings::Read());
  client.SetupDirectory();
  Json::Value info = AccountInfo();
  info["account_url"] = "";
  client.LoadAccount(CreateAccountFolder("client_v2", info, AccountKey()));
  client.PostJws(url_, Payload());
  const Jws request = ca_.Signed().at(0);
  EXPECT_EQ(request.header_text, R"({"alg":"RS256","jwk":{"e":"AQAB","kty":"RSA","n":")" +
                                     AccountKey()["n"].asString() +
                                     R"("},"nonce":"nonce-1","url":")" + url_ + "\"}\n");
  EXPECT_TRUE(Verifies(request, AccountKey()));
}

TEST_F(SignedRequests, CannotBeMadeWithoutAKey) {
  AcmeV2Client client(ca_.DirectoryUrl(), Settings::Read());
  client.SetupDirectory();
  EXPECT_EQ(ErrorOf([&] { client.PostJws(url_, Payload()); }), "201 client_v2: RSA Key not found.");
  EXPECT_EQ(ErrorOf([&] { client.PostAsGet(url_); }), "201 client_v2: RSA Key not found.");
  EXPECT_EQ(ErrorOf([&] { client.BuildProtectedHeader(url_); }),
            "201 client_v2: RSA Key not found.");
  EXPECT_EQ(client.TakeNonce(), "nonce-1");
  EXPECT_EQ(ca_.Count("POST /x"), 0U);
}

TEST_F(SignedRequests, CannotBeMadeWithADamagedKey) {
  Json::Value key = AccountKey();
  key["d"] = "";
  AcmeV2Client client(ca_.DirectoryUrl(), Settings::Read());
  client.SetupDirectory();
  client.LoadAccount(CreateAccountFolder("client_v2", AccountInfo(), key));
  EXPECT_EQ(ErrorOf([&] { client.PostAsGet(url_); }), "201 rsa: RSA: key sing failed.");
}

TEST_F(SignedRequests, AreTriedAgainUpToFourTimesOnABadNonce) {
  for (int bad = 1; bad <= 3; ++bad) {
    const auto client = ReadyClient();
    AnswerBadNonce(bad);
    ca_.Once("POST /x", HttpReply::Json(200, "{}"));
    EXPECT_EQ(client->PostJws(url_, Payload()).status, 200) << bad;
    EXPECT_EQ(ca_.Count("POST /x"), static_cast<size_t>(bad) + 1);
  }
}

TEST_F(SignedRequests, GiveUpAfterTheFourthBadNonce) {
  for (const bool with_payload : {true, false}) {
    const auto client = ReadyClient();
    AnswerBadNonce(4);
    const HttpResponse response =
        with_payload ? client->PostJws(url_, Payload()) : client->PostAsGet(url_);
    EXPECT_EQ(response.status, 400);
    EXPECT_NE(response.body.find("badNonce"), std::string::npos);
    EXPECT_EQ(ca_.Count("POST /x"), 4U);
  }
}

TEST_F(SignedRequests, UseTheNonceOfTheReplyThatRefusedTheLast) {
  const auto client = ReadyClient();
  for (const char* nonce : {"a", "b", "c"}) {
    HttpReply reply = ScriptedCa::Problem(400, "badNonce", "stale");
    reply.headers.push_back(std::string("Replay-Nonce: ") + nonce);
    ca_.Once("POST /x", reply);
  }
  client->PostJws(url_, Payload());
  const std::vector<Jws> requests = ca_.Signed();
  ASSERT_EQ(requests.size(), 4U);
  const char* expected[] = {"nonce-1", "a", "b", "c"};
  for (size_t i = 0; i < requests.size(); ++i) {
    EXPECT_EQ(requests[i].header["nonce"].asString(), expected[i]);
    EXPECT_EQ(requests[i].payload, requests[0].payload);
    EXPECT_TRUE(Verifies(requests[i], AccountKey()));
  }
}

TEST_F(SignedRequests, AreNotTriedAgainOnAnotherProblem) {
  const auto client = ReadyClient();
  for (const HttpReply& reply :
       {ScriptedCa::Problem(400, "malformed", "no"), ScriptedCa::Problem(403, "badNonce", "no"),
        ScriptedCa::Problem(500, "badNonce", "no"), HttpReply::Json(400, "{}"),
        HttpReply::Json(400, R"({"type": 5})"), HttpReply::Json(400, R"({"type": ["badNonce"]})"),
        HttpReply::Json(400, "[]"), HttpReply::Json(400, "null"),
        HttpReply::Json(400, R"("urn:ietf:params:acme:error:badNonce")"),
        HttpReply::Json(400, R"({"type": "urn:ietf:params:acme:error:badnonce"})")}) {
    ca_.ClearRequests();
    ca_.Once("POST /x", reply);
    const HttpResponse response = client->PostJws(url_, Payload());
    EXPECT_EQ(response.status, reply.status) << reply.body;
    EXPECT_EQ(response.body, reply.body);
    EXPECT_EQ(ca_.Count("POST /x"), 1U) << reply.body;
  }
}

TEST_F(SignedRequests, NeedJsonInABadRequestsReply) {
  const auto client = ReadyClient();
  for (const std::string& body : {std::string(), std::string("<html>"), std::string(100000, '[')}) {
    ca_.Once("POST /x", HttpReply::Text(400, body));
    EXPECT_EQ(ErrorOf([&] { client->PostAsGet(url_); }), "200 client_network: body is not json.");
  }
  ca_.Once("POST /x", HttpReply::Text(403, "<html>"));
  EXPECT_EQ(client->PostAsGet(url_).status, 403);
}

TEST_F(SignedRequests, ThatFailOnTheWireAreNotTriedAgain) {
  const auto client = ReadyClient();
  ca_.Once("POST /x", HttpReply::Drop());
  EXPECT_EQ(ErrorOf([&] { client->PostJws(url_, Payload()); }),
            "100 client_network: Server is not reachable.");
  EXPECT_EQ(ca_.Count("POST /x"), 1U);
}

TEST_F(SignedRequests, ShowTheUrlAtLevelOne) {
  const auto client = ReadyClient();
  OutputCapture output(1);
  client->PostJws(url_, Payload());
  client->PostAsGet(url_);
  EXPECT_THAT(output.Debug(), ElementsAre("Post JWS Request: " + url_, "Post Request: " + url_,
                                          "Post JWS Request: " + url_, "Post Request: " + url_));
}

TEST_F(SignedRequests, ShowHeaderAndPayloadAtLevelTwo) {
  const auto client = ReadyClient();
  OutputCapture output(2);
  client->PostJws(url_, Payload());
  const std::string text = output.Text();
  EXPECT_TRUE(text.starts_with(
      "DEBUG: Post JWS Request: " + url_ +
      "\nDEBUG: Post JWS header: {\n   \"alg\" : \"RS256\",\n   \"kid\" : \"" + ca_.AccountUrl() +
      "\",\n   \"nonce\" : \"nonce-1\",\n   \"url\" : \"" + url_ +
      "\"\n}\n\nDEBUG: Post JWS value: {\n   \"a\" : [ 1 ],\n   \"b\" : \"caf\\u00e9 / "
      "\\\"x\\\"\"\n}\n\nDEBUG: "))
      << text;
}

TEST_F(SignedRequests, WithoutPayloadShowOnlyTheUrlAtLevelTwo) {
  const auto client = ReadyClient();
  OutputCapture output(2);
  client->PostAsGet(url_);
  const std::string text = output.Text();
  EXPECT_TRUE(text.starts_with("DEBUG: Post JWS Request: " + url_ + "\n")) << text;
  EXPECT_EQ(text.find("Post JWS header"), std::string::npos);
  EXPECT_EQ(text.find("Post JWS value"), std::string::npos);
}

}  // namespace
}  // namespace kova::test
