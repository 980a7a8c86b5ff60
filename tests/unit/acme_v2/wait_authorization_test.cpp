#include "client_fixture.h"

namespace kova::test {
namespace {

class Validation : public ClientTest {
 protected:
  Validation() : client_(OrderedClient({"a.example"})) {}

  void Answer(const std::string& body, int times = 1) {
    ca_.Once("POST /authz/0", HttpReply::Json(200, body), times);
  }
  void AnswerStatus(const std::string& status, int times = 1) {
    Answer(ca_.Authorization("a.example", status), times);
  }

  std::string Wait(const std::string& type = "http-01") {
    return ErrorOf([&] { client_->WaitAuthorization(ca_.Url("/authz/0"), type); });
  }

  [[nodiscard]] size_t Polls() const { return ca_.Count("POST /authz/0"); }

  std::unique_ptr<AcmeV2Client> client_;
};

TEST_F(Validation, EndsAtOnceWhenItIsValid) {
  AnswerStatus("valid");
  EXPECT_EQ(Wait(), "nothing");
  EXPECT_EQ(Polls(), 1U);
  EXPECT_EQ(sleeps_.Durations(), Waits{});
}

TEST_F(Validation, WaitsTwoSecondsAfterEachPending) {
  AnswerStatus("pending", 3);
  AnswerStatus("valid");
  EXPECT_EQ(Wait(), "nothing");
  EXPECT_EQ(Polls(), 4U);
  EXPECT_EQ(sleeps_.Durations(), Waits(3, Seconds(2)));
}

TEST_F(Validation, EndsInATimeoutAfterThirtyPolls) {
  AnswerStatus("pending", 40);
  EXPECT_EQ(Wait(), "102 client_v2: Autuhorization timeout");
  EXPECT_EQ(Polls(), 30U);
  EXPECT_EQ(sleeps_.Durations(), Waits(30, Seconds(2)));
}

TEST_F(Validation, MayTurnValidAtTheLastPoll) {
  AnswerStatus("pending", 29);
  AnswerStatus("valid");
  EXPECT_EQ(Wait(), "nothing");
  EXPECT_EQ(sleeps_.Total(), Seconds(58));
}

TEST_F(Validation, PollsAnyOtherStatusAgainWithoutAWait) {
  for (const char* status : {"\"processing\"", "\"Pending\"", "\"deactivated\"", "\"\"", "5",
                             "null", "[\"valid\"]", "{}", "true"}) {
    ca_.ClearRequests();
    Answer(std::string(R"({"status": )") + status + "}", 30);
    EXPECT_EQ(Wait(), "102 client_v2: Autuhorization timeout") << status;
    EXPECT_EQ(Polls(), 30U) << status;
  }
  EXPECT_EQ(sleeps_.Durations(), Waits{});
}

TEST_F(Validation, CountsEveryPollTheSame) {
  for (int i = 0; i < 15; ++i) {
    AnswerStatus("pending");
    AnswerStatus("processing");
  }
  EXPECT_EQ(Wait(), "102 client_v2: Autuhorization timeout");
  EXPECT_EQ(Polls(), 30U);
  EXPECT_EQ(sleeps_.Durations(), Waits(15, Seconds(2)));
}

TEST_F(Validation, NeedsAStatus) {
  for (const char* body : {"{}", R"({"Status": "valid"})"}) {
    Answer(body);
    EXPECT_EQ(Wait(), "200 client_v2: unexpect json response.") << body;
  }
  Answer("[]");
  EXPECT_EQ(Wait(), "200 client_v2: unexpect json response.");
}

TEST_F(Validation, FailsWhenTheAuthorizationCannotBeFetched) {
  AnswerStatus("pending");
  ca_.Once("POST /authz/0", HttpReply::Text(500, "no"));
  EXPECT_EQ(Wait(), "200 client_v2: new_authz info: unexpect httpcode.");
  EXPECT_EQ(Polls(), 2U);
}

TEST_F(Validation, TurnsTheCasProblemIntoACode) {
  const std::pair<const char*, int> problems[] = {{"connection", 101},
                                                  {"dns", 109},
                                                  {"unauthorized", 110},
                                                  {"caa", 200},
                                                  {"connection:more", 200},
                                                  {"Dns", 200},
                                                  {"", 200}};
  for (const auto& [problem, code] : problems) {
    AnswerStatus("pending");
    Answer(ca_.FailedAuthorization("a.example", "http-01", problem, "100% of %s"));
    EXPECT_EQ(Wait(), std::to_string(code) + " client_v2: 100% of %s") << problem;
  }
}

TEST_F(Validation, LooksAtTheChallengeOfItsOwnType) {
  Answer(ca_.FailedAuthorization("a.example", "dns-01", "dns", "of the record"));
  EXPECT_EQ(Wait("dns-01"), "109 client_v2: of the record");
  Answer(ca_.FailedAuthorization("a.example", "dns-01", "dns", "of the record"));
  EXPECT_EQ(Wait("http-01"), "200 client_v2: ");
}

TEST_F(Validation, LooksForAChallengeThatIsWhole) {
  Answer(R"({"status": "invalid", "challenges": [
      {"type": "http-01", "url": "u", "error": {"detail": "no token"}},
      {"type": "http-01", "token": "t", "error": {"detail": "no url"}},
      {"url": "u", "token": "t", "error": {"detail": "no type"}},
      {"type": "http-01", "url": null, "token": 5, "error":
          {"type": "urn:ietf:params:acme:error:dns", "detail": "the right one"}},
      {"type": "http-01", "url": "u", "token": "t", "error": {"detail": "one too late"}}]})");
  EXPECT_EQ(Wait(), "109 client_v2: the right one");
}

TEST_F(Validation, SaysThatTheFailedAuthorizationIsIncomplete) {
  Answer(R"({"status": "invalid"})");
  EXPECT_EQ(Wait(), "200 client_v2: new_authz has not challenges.");
  for (const char* challenges :
       {"[]", "null", "{}", "5", R"([5, null, "http-01"])", R"([{"type": "dns-01"}])",
        R"([{"type": "dns-01", "url": "u", "token": "t"}])",
        R"([{"type": ["http-01"], "url": "u", "token": "t"}])"}) {
    Answer(std::string(R"({"status": "invalid", "challenges": )") + challenges + "}");
    EXPECT_EQ(Wait(), "200 client_v2: Can't find challenges") << challenges;
  }
}

TEST_F(Validation, TakesAProblemOfAnyShape) {
  for (const char* error : {"null", "5", "[]", "{}", "\"dns\"", R"({"type": 5, "detail": {}})"}) {
    Answer(std::string(R"({"status": "invalid", "challenges": [
        {"type": "http-01", "url": "u", "token": "t", "error": )") +
           error + "}]}");
    EXPECT_EQ(Wait(), "200 client_v2: ") << error;
  }
  Answer(R"({"status": "invalid",
             "challenges": [{"type": "http-01", "url": "u", "token": "t"}]})");
  EXPECT_EQ(Wait(), "200 client_v2: ");
}

TEST_F(Validation, CutsALongDetail) {
  Answer(ca_.FailedAuthorization("a.example", "http-01", "connection", std::string(9000, 'd')));
  EXPECT_EQ(Wait(), "101 client_v2: " + std::string(511, 'd'));
}

TEST_F(Validation, IsAskedForAtAnyUrlThatIsGiven) {
  ca_.Once("POST /elsewhere", HttpReply::Json(200, R"({"status": "valid"})"));
  client_->WaitAuthorization(ca_.Url("/elsewhere"), "http-01");
  EXPECT_THAT(ca_.Routes(), ElementsAre("POST /elsewhere"));
  EXPECT_EQ(ca_.Signed()[0].payload, "");
}

}  // namespace
}  // namespace kova::test
