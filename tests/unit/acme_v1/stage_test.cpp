#include <gmock/gmock.h>

#include <chrono>
#include <filesystem>
#include <stdexcept>

#include "base/json.h"
#include "v1_fixture.h"

namespace kova::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsSupersetOf;
using Names = std::vector<std::string>;

constexpr char kReached[] = "valid";
constexpr char kNotReached[] = "urn:acme:error:connection";
constexpr char kRefused[] = "urn:acme:error:unauthorized";

// One CA, one dynamic-DNS service and one router, all of which answer through the test's server, so
// that its requests tell what was asked of whom in which order.
class StageTest : public V1Test {
 protected:
  StageTest() {
    MakeReady();
    server.On("POST /new-authz", [this](const HttpRequest& request) { return Authorize(request); });
    server.Otherwise([this](const HttpRequest& request) { return Answer(request); });
    WriteHook("router-detect", "tell '/router?detect'");
    ServeRouter("80 ok\n443 ok");
    server.ClearRequests();
  }

  // Validations of that name and type end so, one after the other; the last one is repeated.
  void Decide(const std::string& name, const std::string& type, std::vector<std::string> outcomes) {
    outcomes_[name + "/" + type] = std::move(outcomes);
  }

  void SkipDns() {
    UseSettings(R"({"skipdns01": true})");
    server.ClearRequests();
  }

  // The host is a customer of the dynamic-DNS service that holds box.ddns.example.
  void ServeDdns() {
    Json::Value settings(Json::objectValue);
    settings["kovaddns"] = server.Url("/ddns");
    WriteFile(kSettingsFile, JsonToString(settings));
    WriteFile(kDeviceRecord, R"({"router": "none", "ddns_hostname":
        "box.ddns.example", "ddns_name_server": "127.0.0.1", "serial_number": "S1",
        "account": {"id": "i", "auth_key": "k"}})");
    server.On("GET /ddns", HttpReply::Json(200, R"({"code": "good"})"));
  }

  void ServeRouter(const std::string& answer) {
    WriteHook("router-rules", "IFS=+\ntell \"/router?$*\"\n[ $# = 1 ] || echo '" + answer + "'");
  }

  // A hook that can tell the server what it was asked.
  void WriteHook(const std::string& name, const std::string& script) {
    WriteFile(std::string(kHooks) + "/" + name,
              "#!/bin/bash\ntell() {\n  exec 3<>/dev/tcp/127.0.0.1/" +
                  std::to_string(server.Port()) +
                  "\n  printf 'GET %s HTTP/1.1\\r\\nHost: x\\r\\n\\r\\n' \"$1\" >&3\n"
                  "  cat <&3 >/dev/null\n}\n" +
                  script + "\n",
              0755);
  }

  std::string Run(const Names& names) {
    return ErrorOf([&] { client.AuthorizeAll(names); });
  }

  // "new-authz NAME", "challenge NAME/TYPE", "poll NAME/TYPE", "ddns ACTION", "router ARGUMENTS".
  Names Events() const {
    Names events;
    for (const HttpRequest& request : server.Requests()) {
      const std::string rest =
          request.path.substr(std::min(request.path.size(), request.path.find('/', 1) + 1));
      if (request.path == "/new-authz") {
        events.push_back("new-authz " + NameOf(request));
      } else if (request.path == "/ddns") {
        events.push_back("ddns " + request.query.substr(0, request.query.find('&')));
      } else if (request.path == "/router") {
        events.push_back("router " + request.query);
      } else {
        events.push_back((request.method == "GET" ? "poll " : "challenge ") + rest);
      }
    }
    return events;
  }

  std::vector<bool> token_stood_;  // at each new-authz and each answer to a challenge

 private:
  static std::string NameOf(const HttpRequest& request) {
    return SignedBody(request).payload["identifier"]["value"].asString();
  }

  Json::Value Authz(const std::string& name) const {
    Json::Value authz(Json::objectValue);
    authz["identifier"]["value"] = name;
    authz["status"] = "pending";
    for (const std::string type : {"http-01", "dns-01"}) {
      Json::Value challenge(Json::objectValue);
      challenge["type"] = type;
      challenge["token"] = "token";
      challenge["status"] = "pending";
      challenge["uri"] = server.Url("/challenge/" + name + "/" + type);
      authz["challenges"].append(challenge);
    }
    return authz;
  }

  HttpReply Authorize(const HttpRequest& request) {
    token_stood_.push_back(!ListFolder(kTokenFolder).empty());
    return FreshJson(201, JsonToString(Authz(NameOf(request))));
  }

  HttpReply Answer(const HttpRequest& request) {
    if (request.path == "/router") return HttpReply::Text(200, "");
    const std::string subject = request.path.substr(request.path.find('/', 1) + 1);
    if (request.method == "POST") {
      token_stood_.push_back(!ListFolder(kTokenFolder).empty());
      return FreshJson(202, "{}", {"Link: <" + server.Url("/authz/" + subject) + R"(>;rel="up")"});
    }
    std::vector<std::string>& outcomes = outcomes_[subject];
    const std::string outcome = outcomes.empty() ? kReached : outcomes.front();
    if (outcomes.size() > 1) outcomes.erase(outcomes.begin());
    return FreshJson(200, JsonToString(Decided(subject, outcome)));
  }

  Json::Value Decided(const std::string& subject, const std::string& outcome) const {
    const size_t slash = subject.find('/');
    Json::Value authz = Authz(subject.substr(0, slash));
    const bool decided = outcome != kReached && outcome != "pending";
    authz["status"] = decided ? "invalid" : outcome;
    for (Json::Value& challenge : authz["challenges"]) {
      challenge["error"]["type"] = outcome;
      challenge["error"]["detail"] = "because of " + challenge["type"].asString();
    }
    return authz;
  }

  std::map<std::string, std::vector<std::string>> outcomes_;
};

Names operator+(Names left, const Names& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

Names Attempt(const std::string& name, const std::string& type = "http-01") {
  return {"new-authz " + name, "challenge " + name + "/" + type, "poll " + name + "/" + type};
}
Names DnsAttempt(const std::string& name) {
  return Names{"new-authz " + name, "ddns _=letsencrypt%2Fcreate"} +
         Names{"challenge " + name + "/dns-01", "poll " + name + "/dns-01",
               "ddns _=letsencrypt%2Fdelete"};
}
const Names kOpen = {"router detect", "router Letsencrypt+80:80+443:443"};
const Names kClose = {"router Letsencrypt"};

// --- One pass ---

TEST_F(StageTest, AuthorizesEveryNameInOrder) {
  const Names steps = StepsOf([&] { EXPECT_EQ(Run({"b.example", "a.example"}), "nothing"); });
  EXPECT_EQ(Events(), Attempt("b.example") + Attempt("a.example"));
  EXPECT_EQ(steps.front(), "strat to do new-authz for b.example");
  EXPECT_THAT(Names(steps.end() - 2, steps.end()),
              ElementsAre("==> finish new-authz", "finish to do new-authz for a.example"));
}

TEST_F(StageTest, TakesANameTwiceWhenItIsAskedForTwice) {
  EXPECT_EQ(Run({"a.example", "a.example"}), "nothing");
  EXPECT_EQ(Events(), Attempt("a.example") + Attempt("a.example"));
}

TEST_F(StageTest, EndsAtTheFirstFailure) {
  SkipDns();
  Decide("a.example", "http-01", {kRefused});
  const Names steps = StepsOf([&] {
    EXPECT_EQ(Run({"a.example", "b.example"}), "102 client_v1: because of http-01");
  });
  EXPECT_EQ(Events(), Attempt("a.example"));
  EXPECT_EQ(steps.back(), "Normal challenge failed, reason: because of http-01");
}

TEST_F(StageTest, DoesNotOpenTheRouterWhenTheWebServerIsReached) {
  EXPECT_EQ(Run({"a.example"}), "nothing");
  EXPECT_EQ(Events(), Attempt("a.example"));
}

TEST_F(StageTest, CarriesAStandardExceptionAsALocalFailure) {
  SkipDns();
  Decide("a.example", "http-01", {"pending"});
  platform::SetSleeper([](milliseconds) { throw std::runtime_error("woken up %s"); });
  const Names steps = StepsOf([&] {
    EXPECT_EQ(Run({"a.example", "b.example"}), "202 client_v1: woken up %s");
  });
  EXPECT_EQ(Events(), Attempt("a.example"));
  EXPECT_EQ(steps.back(), "Normal challenge failed, reason: woken up %s");
}

TEST_F(StageTest, LetsAnythingElsePass) {
  SkipDns();
  Decide("a.example", "http-01", {"pending"});
  platform::SetSleeper([](milliseconds) { throw 5; });
  const Names steps = StepsOf([&] { EXPECT_THROW(client.AuthorizeAll({"a.example"}), int); });
  EXPECT_EQ(steps.back(), "Normal challenge failed, reason: Unknown");
}

TEST_F(StageTest, DnsHoldsBackWhateverIsThrown) {
  ServeDdns();
  Decide("box.ddns.example", "dns-01", {"pending"});
  const std::string reason = "DNS challenge failed, reason: ";
  int waits = 0;
  // Six waits for the record, then the one after the pending poll.
  platform::SetSleeper([&](milliseconds) {
    if (++waits == 7) throw std::runtime_error("woken");
  });
  EXPECT_THAT(StepsOf([&] { EXPECT_FALSE(client.DnsChallenge("box.ddns.example")); }),
              testing::Contains(reason + "woken"));
  waits = 0;
  platform::SetSleeper([&](milliseconds) {
    if (++waits == 7) throw 5;
  });
  EXPECT_THAT(StepsOf([&] { EXPECT_FALSE(client.DnsChallenge("box.ddns.example")); }),
              testing::Contains(reason + "unknow"));
}

// --- dns-01 after http-01 ---

TEST_F(StageTest, TriesDnsAfterAnyFailureOfHttp) {
  ServeDdns();
  Decide("box.ddns.example", "http-01", {kRefused});
  const Names steps = StepsOf([&] { EXPECT_EQ(Run({"box.ddns.example"}), "nothing"); });
  EXPECT_EQ(Events(), Attempt("box.ddns.example") + DnsAttempt("box.ddns.example"));
  EXPECT_THAT(steps, IsSupersetOf({std::string("DNS challenge success box.ddns.example"),
                                   std::string("==> finish new-authz"),
                                   std::string("finish to do new-authz for box.ddns.example")}));
}

TEST_F(StageTest, WhatStoppedHttpCountsWhenDnsFailsToo) {
  ServeDdns();
  Decide("box.ddns.example", "http-01", {kRefused});
  Decide("box.ddns.example", "dns-01", {"urn:acme:error:serverInternal"});
  const Names steps =
      StepsOf([&] { EXPECT_EQ(Run({"box.ddns.example"}), "102 client_v1: because of http-01"); });
  EXPECT_EQ(Events(), Attempt("box.ddns.example") + DnsAttempt("box.ddns.example"));
  EXPECT_THAT(steps,
              IsSupersetOf({std::string("DNS challenge failed, reason: because of dns-01"),
                            std::string("Normal challenge failed, reason: because of http-01")}));
}

TEST_F(StageTest, DnsCannotServeANameOutsideTheZone) {
  Decide("a.example", "http-01", {kRefused});
  const Names steps =
      StepsOf([&] { EXPECT_EQ(Run({"a.example"}), "102 client_v1: because of http-01"); });
  EXPECT_EQ(Events(), Attempt("a.example") + Names{"new-authz a.example"});
  EXPECT_THAT(steps, testing::Contains("DNS challenge failed, reason: Challenge setup is failed."));
}

TEST_F(StageTest, TheTokenOfHttpIsGoneBeforeDnsStarts) {
  ServeDdns();
  Decide("box.ddns.example", "http-01", {kRefused});
  EXPECT_EQ(Run({"box.ddns.example"}), "nothing");
  EXPECT_EQ(token_stood_, (std::vector<bool>{false, true, false, false}));
}

TEST_F(StageTest, SkippingDnsSendsNothing) {
  SkipDns();
  EXPECT_FALSE(client.DnsChallenge("a.example"));
  EXPECT_THAT(Events(), IsEmpty());
}

TEST_F(StageTest, OnlyTheBooleanTrueSkipsDns) {
  for (const char* settings : {R"({"skipdns01": false})", R"({"skipdns01": "true"})",
                               R"({"skipdns01": 1})", R"({"skipdns01": null})", "[]", "", "{}"}) {
    UseSettings(settings);
    server.ClearRequests();
    EXPECT_FALSE(client.DnsChallenge("a.example"));
    EXPECT_THAT(Events(), ElementsAre("new-authz a.example")) << settings;
  }
}

TEST_F(StageTest, SkippingDnsLeavesTheFailureOfHttp) {
  SkipDns();
  Decide("a.example", "http-01", {"urn:acme:error:unknownHost"});
  EXPECT_EQ(Run({"a.example"}), "102 client_v1: because of http-01");
  EXPECT_EQ(Events(), Attempt("a.example"));
}

TEST_F(StageTest, DnsReportsWhatItDidNotExpect) {
  server.Reset("POST /new-authz");
  server.On("POST /new-authz", FreshJson(400, "{}"));
  EXPECT_THAT(StepsOf([&] { EXPECT_FALSE(client.DnsChallenge("a.example")); }),
              testing::Contains("DNS challenge failed, reason: no valid domain name"));
}

TEST_F(StageTest, AnAuthorizationThatIsValidAlreadyServesBothWays) {
  server.Reset("POST /new-authz");
  server.On("POST /new-authz", FreshJson(201, R"({"status": "valid"})"));
  EXPECT_TRUE(client.DnsChallenge("a.example"));
  EXPECT_EQ(Run({"a.example"}), "nothing");
  EXPECT_THAT(Events(), ElementsAre("new-authz a.example", "new-authz a.example"));
}

// --- The pass behind the router ---

TEST_F(StageTest, TriesAgainBehindTheRouter) {
  SkipDns();
  Decide("a.example", "http-01", {kNotReached, kReached});
  const Names steps = StepsOf([&] { EXPECT_EQ(Run({"a.example", "b.example"}), "nothing"); });
  EXPECT_EQ(Events(),
            Attempt("a.example") + Attempt("b.example") + kOpen + Attempt("a.example") + kClose);
  EXPECT_THAT(steps,
              IsSupersetOf({std::string("Normal challenge failed, reason: a.example: because "
                                        "of http-01"),
                            std::string("finish to do new-authz for a.example")}));
  EXPECT_THAT(steps, testing::Not(testing::Contains("close port 80.")));
}

TEST_F(StageTest, TriesDnsBeforeTheRouter) {
  ServeDdns();
  Decide("box.ddns.example", "http-01", {kNotReached});
  EXPECT_EQ(Run({"box.ddns.example"}), "nothing");
  EXPECT_EQ(Events(), Attempt("box.ddns.example") + DnsAttempt("box.ddns.example"));
}

TEST_F(StageTest, OpensTheRouterOnlyAfterDnsFailed) {
  ServeDdns();
  Decide("box.ddns.example", "http-01", {kNotReached, kReached});
  Decide("box.ddns.example", "dns-01", {kRefused});
  EXPECT_EQ(Run({"box.ddns.example"}), "nothing");
  EXPECT_EQ(Events(), Attempt("box.ddns.example") + DnsAttempt("box.ddns.example") + kOpen +
                          Attempt("box.ddns.example") + kClose);
}

TEST_F(StageTest, TriesNoDnsBehindTheRouter) {
  ServeDdns();
  Decide("box.ddns.example", "http-01", {kNotReached});
  Decide("box.ddns.example", "dns-01", {kRefused});
  const Names steps = StepsOf([&] {
    EXPECT_EQ(Run({"box.ddns.example"}), "101 client_v1: box.ddns.example: because of http-01");
  });
  EXPECT_EQ(Events(), Attempt("box.ddns.example") + DnsAttempt("box.ddns.example") + kOpen +
                          Attempt("box.ddns.example") + kClose);
  EXPECT_EQ(steps.back(), "close port 80.");
}

TEST_F(StageTest, AConnectionErrorOfDnsDoesNotUseUpTheRetry) {
  ServeDdns();
  Decide("box.ddns.example", "http-01", {kRefused, kNotReached, kReached});
  Decide("box.ddns.example", "dns-01", {kNotReached});
  EXPECT_EQ(Run({"box.ddns.example"}), "102 client_v1: because of http-01");
  EXPECT_EQ(Run({"box.ddns.example"}), "nothing");
}

TEST_F(StageTest, OnlyTheFirstNameThatIsNotReachedGetsTheSecondPass) {
  SkipDns();
  Decide("a.example", "http-01", {kNotReached, kReached});
  Decide("b.example", "http-01", {kNotReached, kReached});
  EXPECT_EQ(Run({"a.example", "b.example", "c.example"}),
            "101 client_v1: b.example: because of http-01");
  EXPECT_EQ(Events(), Attempt("a.example") + Attempt("b.example"));
}

TEST_F(StageTest, ASecondConnectionErrorOfTheSameNameIsFinal) {
  SkipDns();
  Decide("a.example", "http-01", {kNotReached});
  EXPECT_EQ(Run({"a.example"}), "101 client_v1: a.example: because of http-01");
  EXPECT_EQ(Events(), Attempt("a.example") + kOpen + Attempt("a.example") + kClose);
}

TEST_F(StageTest, AFailureOfALaterNameComesBeforeTheSecondPass) {
  SkipDns();
  Decide("a.example", "http-01", {kNotReached, kReached});
  Decide("b.example", "http-01", {kRefused});
  EXPECT_EQ(Run({"a.example", "b.example"}), "102 client_v1: because of http-01");
  EXPECT_EQ(Events(), Attempt("a.example") + Attempt("b.example"));
}

TEST_F(StageTest, NeedsARouterForTheSecondPass) {
  SkipDns();
  WriteHook("router-detect", "tell '/router?detect'\nexit 3");
  Decide("a.example", "http-01", {kNotReached, kReached});
  const Names steps =
      StepsOf([&] { EXPECT_EQ(Run({"a.example"}), "101 client_v1: failed to open port 80."); });
  EXPECT_EQ(Events(), Attempt("a.example") + Names{"router detect"});
  EXPECT_THAT(Names(steps.end() - 2, steps.end()),
              ElementsAre("Failed to port map router detect. [3]", "failed to open port 80."));
}

TEST_F(StageTest, NeedsPort80ButNotPort443) {
  SkipDns();
  Decide("a.example", "http-01", {kNotReached, kReached});
  ServeRouter("80 ok\n443 failed");
  EXPECT_EQ(Run({"a.example"}), "nothing");

  Decide("b.example", "http-01", {kNotReached, kReached});
  ServeRouter("80 failed\n443 ok");
  AcmeV1Client another(server.Url("/directory"), Settings::Read());
  another.FetchDirectory();
  another.LoadAccountKey(std::string(kAccountStore) + "/ready");
  const Names steps = StepsOf([&] {
    EXPECT_EQ(ErrorOf([&] { another.AuthorizeAll({"b.example"}); }),
              "101 client_v1: failed to open port 80.");
  });
  EXPECT_THAT(steps, testing::Contains("Incorrect port map rules result"));
}

TEST_F(StageTest, ClosesThePortsWhenTheServerGoesAwayInTheSecondPass) {
  SkipDns();
  Decide("a.example", "http-01", {kNotReached});
  WriteHook("router-rules", "IFS=+\ntell \"/router?$*\"\n[ $# = 1 ] || printf '80 ok\\n443 ok\\n'");
  int asked = 0;
  server.On("POST /new-authz", [&](const HttpRequest&) {
    if (++asked == 2) return HttpReply::Drop();
    return FreshJson(201, R"({"status": "pending", "identifier": {"value": "a.example"},
        "challenges": [{"type": "http-01", "token": "t", "status": "s", "uri": ")" +
                              server.Url("/challenge/a.example/http-01") + R"("}]})");
  });
  EXPECT_EQ(Run({"a.example"}), "100 client_network: Server is not reachable.");
  EXPECT_EQ(Events(), Attempt("a.example") + kOpen + Names{"new-authz a.example"} + kClose);
}

}  // namespace
}  // namespace kova::test
