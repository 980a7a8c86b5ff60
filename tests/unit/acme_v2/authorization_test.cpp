#include "client_fixture.h"

namespace kova::test {
namespace {

std::string TokenFile(const std::string& name) {
  return std::string(kTokenFolder) + "/" + ScriptedCa::Token(name);
}

class Authorizations : public ClientTest {
 protected:
  // Orders the name and proves it; the error, if any. Its requests are all that the CA has seen.
  std::string Prove(const std::string& name = "a.example") {
    if (!client_) client_ = OrderedClient({name});
    return ErrorOf([this] { client_->DoAuthorization(ca_.Url("/authz/0")); });
  }

  std::unique_ptr<AcmeV2Client> client_;
};

TEST(FindChallenge, LooksIntoAListAlone) {
  const Json::Value listed = Parsed(R"({"challenges": [{"type": "dns-01"}, {"type": "http-01"}]})");
  EXPECT_EQ(FindChallenge(listed, "http-01"), &listed["challenges"][1]);
  for (const char* other : {R"({"a": {"type": "http-01"}})", R"("http-01")", "null", "7"}) {
    const Json::Value odd = Parsed(std::string("{\"challenges\": ") + other + "}");
    EXPECT_EQ(FindChallenge(odd, "http-01"), nullptr) << other;
  }
}

TEST_F(Authorizations, AreProvedByTheChallengeTheyOffer) {
  std::string published;
  client_ = OrderedClient({"a.example"});
  ca_.Before("POST /challenge/0/http-01",
             [&published] { published = ReadFile(TokenFile("a.example")); });
  OutputCapture output(1);
  EXPECT_EQ(Prove(), "nothing");
  EXPECT_THAT(ca_.Routes(),
              ElementsAre("POST /authz/0", "POST /challenge/0/http-01", "POST /authz/0"));
  EXPECT_EQ(published, ScriptedCa::Token("a.example") + "." +
                           DigestBase64Url(R"({"e":"AQAB","kty":"RSA","n":")" +
                                           AccountKey()["n"].asString() + "\"}"));
  EXPECT_THAT(ListFolder(kTokenFolder), IsEmpty());
  EXPECT_THAT(output.Debug(), Contains("Setup challenge for a.example with type http-01"));
}

TEST_F(Authorizations, AreAskedForWithoutPayloadAndAnsweredWithAnEmptyObject) {
  EXPECT_EQ(Prove(), "nothing");
  const std::vector<Jws> requests = ca_.Signed();
  ASSERT_EQ(requests.size(), 3U);
  EXPECT_EQ(requests[0].payload, "");
  EXPECT_EQ(requests[1].payload, "{}\n");
  EXPECT_EQ(requests[2].payload, "");
}

TEST_F(Authorizations, ThatAreValidAlreadyNeedNoChallenge) {
  client_ = OrderedClient({"a.example"});
  for (const std::string& body :
       {ca_.Authorization("a.example", "valid"), std::string(R"({"status": "valid"})")}) {
    ca_.ClearRequests();
    ca_.Once("POST /authz/0", HttpReply::Json(200, body));
    OutputCapture output(1);
    EXPECT_EQ(Prove(), "nothing");
    EXPECT_EQ(output.Debug().back(), "Get valid without setup challenge, may cache?");
    EXPECT_THAT(ca_.Routes(), ElementsAre("POST /authz/0"));
  }
  EXPECT_FALSE(Exists("/var/lib/letsencrypt"));
}

TEST_F(Authorizations, ThatCannotBeFetchedFail) {
  client_ = OrderedClient({"a.example"});
  for (const int status : {201, 204, 403, 404, 500}) {
    ca_.Once("POST /authz/0", HttpReply::Json(status, ca_.Authorization("a.example", "valid")));
    EXPECT_EQ(Prove(), "200 client_v2: new_authz info: unexpect httpcode.") << status;
  }
  for (const char* body : {"[]", "null", "5", "\"valid\""}) {
    ca_.Once("POST /authz/0", HttpReply::Json(200, body));
    EXPECT_EQ(Prove(), "200 client_v2: unexpect json response.") << body;
  }
  ca_.Once("POST /authz/0", HttpReply::Text(200, "<html>"));
  EXPECT_EQ(Prove(), "200 client_network: body is not json.");
  EXPECT_EQ(client_->ChallengeTypes().size(), 1U);
}

TEST_F(Authorizations, WithoutANameFail) {
  client_ = OrderedClient({"a.example"});
  for (const char* body :
       {"{}", R"({"status": "pending"})", R"({"identifier": []})", R"({"identifier": {}})",
        R"({"identifier": {"value": 5}})", R"({"identifier": {"value": ["a.example"]}})",
        R"({"identifier": "a.example"})"}) {
    ca_.Once("POST /authz/0", HttpReply::Json(200, body));
    EXPECT_EQ(Prove(), "200 client_v2: unexpect json response.") << body;
  }
}

TEST_F(Authorizations, ThatOfferNoAllowedTypeUseUpAllTypes) {
  WriteFile(kSettingsFile, kHttpOnly);
  ca_.Offer({"dns-01"});
  EXPECT_EQ(Prove(), "200 client_v2: do new auth by path: failed to do challenge.");
  EXPECT_FALSE(client_->HasChallengeTypes());
  EXPECT_THAT(ca_.Routes(), ElementsAre("POST /authz/0"));
}

TEST_F(Authorizations, WithUnusableChallengesUseUpAllTypes) {
  for (const char* challenges :
       {"null", "[]", "5", "\"http-01\"", R"({"type": "http-01"})", R"([5, null, [], "http-01"])",
        R"([{"type": 5}, {"type": ["http-01"]}, {}])", R"([{"type": "HTTP-01"}])"}) {
    client_ = OrderedClient({"a.example"});
    Json::Value authorization = Parsed(ca_.Authorization("a.example", "pending"));
    authorization["challenges"] = Parsed(challenges);
    ca_.Once("POST /authz/0", HttpReply::Json(200, authorization.toStyledString()));
    EXPECT_EQ(Prove(), "200 client_v2: do new auth by path: failed to do challenge.") << challenges;
    EXPECT_FALSE(client_->HasChallengeTypes());
  }
}

TEST_F(Authorizations, UseTheFirstChallengeOfAType) {
  client_ = OrderedClient({"a.example"});
  Json::Value authorization = Parsed(ca_.Authorization("a.example", "pending"));
  Json::Value& challenges = authorization["challenges"];
  challenges = Parsed(R"([{"type": "tls-alpn-01"}, {"type": "http-01", "token": "first"},
                          {"type": "http-01", "token": "second"}])");
  challenges[1]["url"] = ca_.Url("/challenge/0/http-01");
  challenges[2]["url"] = ca_.Url("/wrong");
  ca_.Once("POST /authz/0", HttpReply::Json(200, authorization.toStyledString()));
  EXPECT_EQ(Prove(), "nothing");
  EXPECT_EQ(ca_.Count("POST /challenge/0/http-01"), 1U);
}

TEST_F(Authorizations, WithATokenThatIsNoTextLeaveTheTypeAllowed) {
  client_ = OrderedClient({"a.example"});
  for (const char* token : {"null", "5", "{}", "[\"t\"]"}) {
    Json::Value authorization = Parsed(ca_.Authorization("a.example", "pending"));
    authorization["challenges"][0]["token"] = Parsed(token);
    ca_.Once("POST /authz/0", HttpReply::Json(200, authorization.toStyledString()));
    EXPECT_EQ(Prove(), "200 client_v2: unexpect json response.") << token;
  }
  EXPECT_EQ(client_->ChallengeTypes().size(), 1U);
}

TEST_F(Authorizations, WithAHostileTokenAreRefusedBeforeTheCaIsAnswered) {
  client_ = OrderedClient({"a.example"});
  WriteFile("/var/lib/letsencrypt/.well-known/x", "kept");
  for (const char* token : {"", ".", "..", "a/b", "../x", "%", "x\\u0000"}) {
    ca_.ClearRequests();
    std::string authorization = ca_.Authorization("a.example", "pending");
    const std::string old = ScriptedCa::Token("a.example");
    authorization.replace(authorization.find(old), old.size(), token);
    ca_.Once("POST /authz/0", HttpReply::Json(200, authorization));
    OutputCapture output(1);
    EXPECT_EQ(Prove(), "202 client_v2: Failed to setup challegne for a.example of http-01")
        << token;
    EXPECT_EQ(output.Debug().back(), "Failed to setup challenge for a.example with type http-01.");
    EXPECT_THAT(ca_.Routes(), ElementsAre("POST /authz/0"));
  }
  EXPECT_EQ(client_->ChallengeTypes().size(), 1U);
  EXPECT_EQ(ReadFile("/var/lib/letsencrypt/.well-known/x"), "kept");
}

TEST_F(Authorizations, LeaveTheTypeAllowedWhenItsFileCannotBeWritten) {
  WriteFile(kTokenFolder, "a file where the folder should be");
  EXPECT_EQ(Prove(), "202 utils: Failed to chmod.");
  EXPECT_EQ(client_->ChallengeTypes().size(), 1U);
}

TEST_F(Authorizations, WhoseChallengeTheCaRefusesUseUpTheType) {
  for (const HttpReply& reply : {ScriptedCa::Problem(400, "malformed", "no"),
                                 HttpReply::Text(500, "no"), HttpReply::Json(202, "{}")}) {
    client_ = OrderedClient({"a.example"});
    ca_.Once("POST /challenge/0/http-01", reply);
    OutputCapture output(1);
    EXPECT_EQ(Prove(), "200 client_v2: challenge: unexpect httpcode.");
    EXPECT_EQ(output.Debug().back(), "Failed to do challenge for a.example with type http-01.");
    EXPECT_FALSE(client_->HasChallengeTypes());
    EXPECT_THAT(ca_.Routes(), ElementsAre("POST /authz/0", "POST /challenge/0/http-01"));
    EXPECT_THAT(ListFolder(kTokenFolder), IsEmpty());
  }
}

TEST_F(Authorizations, UseUpTheTypeWhenTheConnectionIsLost) {
  client_ = OrderedClient({"a.example"});
  ca_.Once("POST /challenge/0/http-01", HttpReply::Drop());
  EXPECT_EQ(Prove(), "100 client_network: Server is not reachable.");
  EXPECT_FALSE(client_->HasChallengeTypes());
}

TEST_F(Authorizations, WhoseChallengeHasNoUrlUseUpTheType) {
  client_ = OrderedClient({"a.example"});
  Json::Value authorization = Parsed(ca_.Authorization("a.example", "pending"));
  authorization["challenges"][0]["url"] = 5;
  ca_.Once("POST /authz/0", HttpReply::Json(200, authorization.toStyledString()));
  EXPECT_EQ(Prove(), "100 client_network: Server is not reachable.");
  EXPECT_FALSE(client_->HasChallengeTypes());
}

TEST_F(Authorizations, KeepTheFileInPlaceUntilTheCaIsDone) {
  client_ = OrderedClient({"a.example"});
  std::vector<bool> there;
  const auto look = [&there] { there.push_back(Exists(TokenFile("a.example"))); };
  ca_.Before("POST /authz/0", look);
  ca_.Before("POST /challenge/0/http-01", look);
  const std::string pending = ca_.Authorization("a.example", "pending");
  ca_.Once("POST /authz/0", HttpReply::Json(200, pending), 3);
  EXPECT_EQ(Prove(), "nothing");
  EXPECT_EQ(there, (std::vector<bool>{false, true, true, true, true}));
  EXPECT_FALSE(Exists(TokenFile("a.example")));
}

TEST_F(Authorizations, TakeTheFileAwayBeforeTheErrorIsOut) {
  client_ = OrderedClient({"a.example"});
  ca_.Once("POST /authz/0", HttpReply::Json(200, ca_.Authorization("a.example", "pending")));
  ca_.Once("POST /authz/0", HttpReply::Json(200, ca_.FailedAuthorization("a.example", "http-01",
                                                                         "dns", "no such name")));
  EXPECT_EQ(Prove(), "109 client_v2: no such name");
  EXPECT_FALSE(client_->HasChallengeTypes());
  EXPECT_THAT(ListFolder(kTokenFolder), IsEmpty());
}

}  // namespace
}  // namespace kova::test
