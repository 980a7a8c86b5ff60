#include <gmock/gmock.h>

#include <filesystem>

#include "../crypto/known_keys.h"
#include "base/json.h"
#include "v1_fixture.h"

namespace kova::test {
namespace {

using std::chrono::seconds;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kChallengeRoute[] = "POST /challenge";
constexpr char kPollRoute[] = "GET /authz";

Json::Value FromText(const std::string& text) {
  Json::Value value;
  EXPECT_TRUE(JsonFromText(text, value)) << text;
  return value;
}

class AuthorizationV1Test : public V1Test {
 protected:
  AuthorizationV1Test() { MakeReady(); }

  // An authorization that offers both challenges. `error` goes into the http-01 challenge.
  Json::Value Authz(const std::string& status = "pending",
                    const Json::Value& error = Json::Value()) const {
    Json::Value authz = FromText(R"({"identifier": {"type": "dns"}, "challenges": [
        {"type": "dns-01", "token": "dns-token", "status": "pending"},
        {"type": "http-01", "token": "web-token", "status": "pending"}]})");
    authz["identifier"]["value"] = kDomain;
    authz["status"] = status;
    for (Json::Value& challenge : authz["challenges"]) challenge["uri"] = server.Url("/challenge");
    if (!error.isNull()) authz["challenges"][1]["error"] = error;
    return authz;
  }

  void ServeAnswer(int status = 202) {
    server.On(kChallengeRoute,
              FreshJson(status, "{}", {"Link: <" + server.Url("/authz") + R"(>;rel="up")"}));
  }
  void ServePoll(const std::string& status) {
    server.On(kPollRoute, FreshJson(200, JsonToString(Authz(status))));
  }
  void ServeInvalid(const Json::Value& error) {
    server.On(kPollRoute, FreshJson(200, JsonToString(Authz("invalid", error))));
  }
  static Json::Value Problem(const std::string& type, const std::string& detail) {
    Json::Value problem(Json::objectValue);
    problem["type"] = type;
    problem["detail"] = detail;
    return problem;
  }

  std::string Attempt(const Json::Value& authz) {
    return ErrorOf([&] {
      Http01Challenge challenge;
      client.DoChallenge(authz, challenge);
    });
  }
  std::string Attempt() { return Attempt(Authz()); }

  size_t Polls() const {
    const std::vector<std::string> routes = server.Routes();
    return static_cast<size_t>(std::count(routes.begin(), routes.end(), kPollRoute));
  }
};

// --- New authorization ---

TEST_F(AuthorizationV1Test, AsksForAnAuthorization) {
  server.On("POST /new-authz", FreshJson(201, JsonToString(Authz())));
  Json::Value authz;
  EXPECT_THAT(StepsOf([&] { authz = client.NewAuthz(kDomain); }),
              ElementsAre("==> start new authz.", "new authz: do new-authz.",
                          "Post JWS Request: " + server.Url("/new-authz"),
                          "new authz: setup challenge env."));
  EXPECT_EQ(authz, Authz());
  EXPECT_EQ(Posts("POST /new-authz").at(0).payload_text,
            "{\"identifier\":{\"type\":\"dns\",\"value\":\"host.example.net\"},"
            "\"resource\":\"new-authz\"}\n");
}

TEST_F(AuthorizationV1Test, ReportsARefusedName) {
  server.On("POST /new-authz", FreshJson(400, R"({"detail": "not read"})"));
  EXPECT_EQ(ErrorOf([&] { client.NewAuthz(kDomain); }), "102 client_v1: no valid domain name");
}

TEST_F(AuthorizationV1Test, ReportsAnUnexpectedStatusOfTheAuthorization) {
  for (const int status : {200, 202, 403, 404, 429, 500}) {
    server.Reset("POST /new-authz");
    server.On("POST /new-authz", FreshJson(status, JsonToString(Authz())));
    EXPECT_EQ(ErrorOf([&] { client.NewAuthz(kDomain); }),
              "200 client_v1: new_authz: unexpect httpcode.");
  }
}

TEST_F(AuthorizationV1Test, ReportsAnAuthorizationThatIsNotJson) {
  server.On("POST /new-authz", Fresh(HttpReply::Text(201, "<html>")));
  EXPECT_EQ(ErrorOf([&] { client.NewAuthz(kDomain); }), "200 client_network: body is not json.");
}

// --- Picking ---

std::string PickError(const std::string& authz, const std::string& type = "http-01") {
  const Json::Value value = FromText(authz);
  return ErrorOf([&] { AcmeV1Client::PickChallenge(value, type); });
}

TEST(PickChallengeTest, TakesTheFirstCompleteEntryOfTheType) {
  const Json::Value authz = FromText(R"({"challenges": [
      5, null, "http-01", ["http-01"],
      {"type": "dns-01", "uri": "a", "token": "a", "status": "a"},
      {"type": "http-01", "uri": "b", "token": "b"},
      {"type": "http-01", "uri": "c", "status": "c"},
      {"type": "http-01", "token": "d", "status": "d"},
      {"type": ["http-01"], "uri": "e", "token": "e", "status": "e"},
      {"type": "http-01", "uri": "f", "token": "f", "status": "f"},
      {"type": "http-01", "uri": "g", "token": "g", "status": "g"}]})");
  EXPECT_EQ(AcmeV1Client::PickChallenge(authz, "http-01")["uri"], "f");
  EXPECT_EQ(AcmeV1Client::PickChallenge(authz, "dns-01")["uri"], "a");
}

TEST(PickChallengeTest, ReportsAnAuthorizationWithoutChallenges) {
  for (const char* authz : {"{}", "[]", "null", "5", R"("challenges")"}) {
    EXPECT_EQ(PickError(authz), "200 client_v1: new_authz has not challenges.") << authz;
  }
}

TEST(PickChallengeTest, ReportsThatTheTypeIsNotOffered) {
  for (const char* challenges :
       {"[]", "null", "{}", "5",
        R"({"a": {"type": "http-01", "uri": "", "token": "", "status": ""}})",
        R"([{"type": "HTTP-01", "uri": "a", "token": "a", "status": "a"}])"}) {
    EXPECT_EQ(PickError(std::string(R"({"challenges": )") + challenges + "}"),
              "200 client_v1: Can't find challenges")
        << challenges;
  }
}

// --- Answering ---

TEST_F(AuthorizationV1Test, AnswersAndWaitsUntilValid) {
  const std::string proof = "web-token." + RsaKey::FromJson(Rfc7515Key())->Thumbprint();
  std::string published;
  server.On(kChallengeRoute, [&](const HttpRequest&) {
    published = ReadFile(std::string(kTokenFolder) + "/web-token");
    return FreshJson(202, "{}", {"Link: <" + server.Url("/authz") + R"(>;rel="up")"});
  });
  ServePoll("valid");
  EXPECT_THAT(
      StepsOf([&] { EXPECT_EQ(Attempt(), "nothing"); }),
      ElementsAre("new authz: http-01 challenge.", "Post JWS Request: " + server.Url("/challenge"),
                  "new authz: http-01 check result."));
  EXPECT_EQ(published, proof);
  EXPECT_EQ(
      Posts(kChallengeRoute).at(0).payload_text,
      "{\"keyAuthorization\":\"" + proof + "\",\"resource\":\"challenge\",\"type\":\"http-01\"}\n");
  EXPECT_THAT(server.Routes(), ElementsAre("GET /directory", kChallengeRoute, kPollRoute));
  EXPECT_THAT(ListFolder(kTokenFolder), IsEmpty());
  EXPECT_THAT(sleeps.Durations(), IsEmpty());
}

TEST_F(AuthorizationV1Test, AnAuthorizationThatIsValidAlreadyNeedsNothing) {
  EXPECT_EQ(Attempt(FromText(R"({"status": "valid"})")), "nothing");
  EXPECT_THAT(server.Routes(), ElementsAre("GET /directory"));
  EXPECT_FALSE(std::filesystem::exists("/var/lib/letsencrypt"));
}

TEST_F(AuthorizationV1Test, ReportsAChallengeThatCannotBeSetUp) {
  WriteFile("/var/lib/letsencrypt/.well-known", "a file");
  EXPECT_EQ(Attempt(), "203 client_v1: Challenge setup is failed.");
  EXPECT_THAT(server.Routes(), ElementsAre("GET /directory"));
}

TEST_F(AuthorizationV1Test, DoesNotSetUpAHostileToken) {
  WriteFile("/var/lib/letsencrypt/victim", "precious");
  for (const std::string token : {"", ".", "..", "../../victim", "/etc/x", "a/b", "a b", "a%2f"}) {
    Json::Value authz = Authz();
    authz["challenges"][1]["token"] = token;
    EXPECT_EQ(Attempt(authz), "203 client_v1: Challenge setup is failed.") << token;
  }
  EXPECT_EQ(ReadFile("/var/lib/letsencrypt/victim"), "precious");
  EXPECT_THAT(server.Routes(), ElementsAre("GET /directory"));
}

TEST_F(AuthorizationV1Test, RefusesMembersOfAnotherType) {
  const char* const changes[] = {R"({"token": 5})", R"({"token": null})", R"({"uri": ["x"]})",
                                 R"({"uri": {}})"};
  for (const char* change : changes) {
    Json::Value authz = Authz();
    const Json::Value members = FromText(change);
    for (const std::string& name : members.getMemberNames()) {
      authz["challenges"][1][name] = members[name];
    }
    EXPECT_EQ(Attempt(authz), "200 client_v1: unexpect json response.") << change;
  }
  for (const char* identifier : {"null", "5", "[]", R"("x")", "{}", R"({"value": 5})"}) {
    Json::Value authz = Authz();
    authz["identifier"] = FromText(identifier);
    EXPECT_EQ(Attempt(authz), "200 client_v1: unexpect json response.") << identifier;
  }
  EXPECT_THAT(server.Routes(), ElementsAre("GET /directory"));
}

TEST_F(AuthorizationV1Test, ReportsAnUnexpectedStatusOfTheAnswer) {
  for (const int status : {200, 201, 400, 403, 500}) {
    server.Reset(kChallengeRoute);
    ServeAnswer(status);
    EXPECT_EQ(Attempt(), "200 client_v1: challenge: unexpect httpcode.") << status;
    EXPECT_THAT(ListFolder(kTokenFolder), IsEmpty());
  }
  EXPECT_EQ(Polls(), 0U);
}

TEST_F(AuthorizationV1Test, CannotPollWithoutALink) {
  server.On(kChallengeRoute, FreshJson(202, "{}", {"Link: <x>; rel=\"up\""}));
  EXPECT_EQ(Attempt(), "100 client_network: Server is not reachable.");
}

// --- Polling ---

TEST_F(AuthorizationV1Test, WaitsTwoSecondsAfterEachPendingPoll) {
  ServeAnswer();
  for (const char* status : {"pending", "pending", "valid"}) ServePoll(status);
  EXPECT_EQ(Attempt(), "nothing");
  EXPECT_THAT(sleeps.Durations(), ElementsAre(seconds(2), seconds(2)));
}

TEST_F(AuthorizationV1Test, GivesUpAfterThirtyPendingPolls) {
  ServeAnswer();
  ServePoll("pending");
  EXPECT_EQ(Attempt(), "200 client_v1: Authorization timeout.");
  EXPECT_EQ(Polls(), 30U);
  EXPECT_EQ(sleeps.Durations().size(), 30U);
  EXPECT_THAT(sleeps.Durations(), Each(seconds(2)));
}

TEST_F(AuthorizationV1Test, PollsAnyOtherStatusAtOnceAndCountsIt) {
  ServeAnswer();
  for (const char* status : {"processing", "unknown", "", "Valid", "revoked"}) ServePoll(status);
  EXPECT_EQ(Attempt(), "200 client_v1: Authorization timeout.");
  EXPECT_EQ(Polls(), 30U);
  EXPECT_THAT(sleeps.Durations(), IsEmpty());
}

TEST_F(AuthorizationV1Test, TheThirtiethPollStillCounts) {
  ServeAnswer();
  for (int i = 0; i < 29; ++i) ServePoll("processing");
  ServePoll("valid");
  EXPECT_EQ(Attempt(), "nothing");
  EXPECT_EQ(Polls(), 30U);
}

TEST_F(AuthorizationV1Test, KeepsTheNoncesOfItsPolls) {
  ServeAnswer();
  ServePoll("processing");
  ServePoll("valid");
  EXPECT_EQ(Attempt(), "nothing");
  EXPECT_EQ(client.TakeNonce(), "nonce4");  // of the second poll
  EXPECT_EQ(client.TakeNonce(), "nonce3");
  EXPECT_EQ(client.TakeNonce(), "nonce2");  // of the answer
}

TEST_F(AuthorizationV1Test, ReportsAnUnexpectedStatusOfAPoll) {
  ServeAnswer();
  for (const int status : {201, 202, 404, 500}) {
    server.Reset(kPollRoute);
    server.On(kPollRoute, FreshJson(status, JsonToString(Authz("valid"))));
    EXPECT_EQ(Attempt(), "200 client_v1: unexpect httpcode.") << status;
  }
}

TEST_F(AuthorizationV1Test, ReportsAPollWithoutAStatus) {
  ServeAnswer();
  for (const char* body : {"{}", "[]", "null", "5", R"("valid")", R"({"status": 5})",
                           R"({"status": null})", R"({"status": ["valid"]})"}) {
    server.Reset(kPollRoute);
    server.On(kPollRoute, FreshJson(200, body));
    EXPECT_EQ(Attempt(), "200 client_v1: unexpect json response.") << body;
  }
}

TEST_F(AuthorizationV1Test, ReportsAPollThatIsNotJson) {
  ServeAnswer();
  server.On(kPollRoute, Fresh(HttpReply::Text(200, "<html>")));
  EXPECT_EQ(Attempt(), "200 client_network: body is not json.");
}

// --- Failed validations ---

TEST_F(AuthorizationV1Test, MapsTheFirstConnectionErrorOfHttp01ToARetryAndLaterOnesToAFailure) {
  ServeAnswer();
  ServeInvalid(Problem("urn:acme:error:connection", "no route %s"));
  EXPECT_EQ(Attempt(), "107 client_v1: host.example.net: no route %s");
  EXPECT_EQ(Attempt(), "101 client_v1: host.example.net: no route %s");
  EXPECT_EQ(Attempt(), "101 client_v1: host.example.net: no route %s");
}

TEST_F(AuthorizationV1Test, MapsTheErrorTypes) {
  struct Mapping {
    const char* type;
    const char* error;
  };
  constexpr Mapping kMappings[] = {
      {"urn:acme:error:unauthorized", "102 client_v1: why %n"},
      {"urn:acme:error:unknownHost", "102 client_v1: why %n"},
      {"urn:acme:error:tls", "200 client_v1: why %n"},
      {"urn:acme:error:Connection", "200 client_v1: why %n"},
      {"urn:ietf:params:acme:error:connection", "200 client_v1: why %n"},
      {"", "200 client_v1: why %n"},
  };
  ServeAnswer();
  for (const Mapping& mapping : kMappings) {
    server.Reset(kPollRoute);
    ServeInvalid(Problem(mapping.type, "why %n"));
    EXPECT_EQ(Attempt(), mapping.error) << mapping.type;
  }
  // None of them used up the retry.
  server.Reset(kPollRoute);
  ServeInvalid(Problem("urn:acme:error:connection", "x"));
  EXPECT_EQ(Attempt(), "107 client_v1: host.example.net: x");
}

TEST_F(AuthorizationV1Test, AnInvalidAuthorizationIsNotPolledAgain) {
  ServeAnswer();
  ServeInvalid(Problem("urn:acme:error:unauthorized", "x"));
  Attempt();
  EXPECT_EQ(Polls(), 1U);
  EXPECT_THAT(sleeps.Durations(), IsEmpty());
  EXPECT_THAT(ListFolder(kTokenFolder), IsEmpty());
}

TEST_F(AuthorizationV1Test, AnErrorOfAnotherShapeHasNoDetail) {
  ServeAnswer();
  for (const char* error : {"{}", "[]", "5", R"("urn:acme:error:connection")",
                            R"({"type": 5, "detail": []})", R"({"type": null})"}) {
    server.Reset(kPollRoute);
    ServeInvalid(FromText(error));
    EXPECT_EQ(Attempt(), "200 client_v1: ") << error;
  }
}

TEST_F(AuthorizationV1Test, ReportsAnInvalidAuthorizationThatDoesNotSayWhy) {
  ServeAnswer();
  server.On(kPollRoute, FreshJson(200, R"({"status": "invalid"})"));
  EXPECT_EQ(Attempt(), "200 client_v1: new_authz has not challenges.");
  server.Reset(kPollRoute);
  server.On(kPollRoute, FreshJson(200, R"({"status": "invalid", "challenges": [1]})"));
  EXPECT_EQ(Attempt(), "200 client_v1: Can't find challenges");
}

TEST_F(AuthorizationV1Test, CutsALongDetail) {
  ServeAnswer();
  ServeInvalid(Problem("urn:acme:error:unauthorized", std::string(2000, 'x')));
  EXPECT_EQ(Attempt(), "102 client_v1: " + std::string(511, 'x'));
}

}  // namespace
}  // namespace kova::test
