#include "client_fixture.h"
#include "wire_clock.h"

namespace kova::test {
namespace {

constexpr char kAuthorization[] = "POST /authz/0";
constexpr char kChallenge[] = "POST /challenge/0/http-01";
constexpr Milliseconds kFirst{50};

// One authorization that is proved with `quickvalidation` on.
class QuickValidation : public ClientTest {
 protected:
  QuickValidation() {
    WriteFile(kSettingsFile, R"({"skipdns01": true, "quickvalidation": true})");
    client_ = OrderedClient({"a.example"});
  }

  [[nodiscard]] HttpReply Status(const std::string& status,
                                 const std::string& retry_after = {}) const {
    HttpReply reply = HttpReply::Json(200, ca_.Authorization("a.example", status));
    if (!retry_after.empty()) reply.headers.push_back("Retry-After: " + retry_after);
    return reply;
  }

  // The error of proving the name, where the CA gives these replies after it was told to look.
  std::string Prove(const std::vector<HttpReply>& looks) {
    ca_.ClearRequests();
    sleeps_.Clear();
    ca_.Once(kAuthorization, Status("pending"));
    for (const HttpReply& look : looks) ca_.Once(kAuthorization, look);
    return ErrorOf([this] { client_->DoAuthorization(ca_.Url("/authz/0")); });
  }

  std::unique_ptr<AcmeV2Client> client_;
};

TEST_F(QuickValidation, LooksForTheFirstTimeAfterAMoment) {
  EXPECT_EQ(Prove({Status("valid")}), "nothing");
  EXPECT_THAT(ca_.Routes(), ElementsAre(kAuthorization, kChallenge, kAuthorization));
  EXPECT_EQ(sleeps_.Durations(), Waits{kFirst});
}

TEST_F(QuickValidation, WaitsLongerEachTimeUpToTwoSeconds) {
  std::vector<HttpReply> looks(8, Status("pending"));
  looks.push_back(Status("valid"));
  EXPECT_EQ(Prove(looks), "nothing");
  EXPECT_EQ(sleeps_.Durations(), (Waits{kFirst, 2 * kFirst, 4 * kFirst, 8 * kFirst, 16 * kFirst,
                                        32 * kFirst, Seconds(2), Seconds(2), Seconds(2)}));
}

TEST_F(QuickValidation, WaitsAfterAnyStatusThatIsNotFinal) {
  EXPECT_EQ(Prove({Status("processing"), Status("pending"), Status(""), Status("valid")}),
            "nothing");
  EXPECT_EQ(sleeps_.Durations(), (Waits{kFirst, 2 * kFirst, 4 * kFirst, 8 * kFirst}));
}

TEST_F(QuickValidation, WaitsAsLongAsTheCaAsks) {
  HttpReply answer = HttpReply::Json(200, "{}");
  answer.headers.push_back("Retry-After: 3");
  ca_.Once(kChallenge, answer);
  EXPECT_EQ(Prove({Status("pending", "60"), Status("pending"), Status("valid")}), "nothing");
  EXPECT_EQ(sleeps_.Durations(), (Waits{Seconds(3), Seconds(10), kFirst}));
}

TEST_F(QuickValidation, EndsInATimeoutAfterSixtySeconds) {
  ca_.Always(kAuthorization, Status("pending"));
  EXPECT_EQ(Prove({}), "102 client_v2: Autuhorization timeout");
  EXPECT_EQ(sleeps_.Total(), Milliseconds(59150));  // another two seconds would be too long
}

TEST_F(QuickValidation, CountsTimeOnTheWire) {
  ca_.Before(kAuthorization, [] { on_the_wire += Seconds(20); });  // so long takes each answer
  ca_.Always(kAuthorization, Status("pending"));
  EXPECT_EQ(Prove({}), "102 client_v2: Autuhorization timeout");
  on_the_wire = Seconds(0);
  EXPECT_EQ(ca_.Count(kAuthorization), 1U + 3U);
}

TEST_F(QuickValidation, SaysWhatTheCaSays) {
  const auto failed =
      HttpReply::Json(200, ca_.FailedAuthorization("a.example", "http-01", "dns", "no such name"));
  EXPECT_EQ(Prove({Status("pending"), failed}), "109 client_v2: no such name");
  EXPECT_EQ(sleeps_.Durations(), (Waits{kFirst, 2 * kFirst}));
  EXPECT_TRUE(client_->ChallengeTypes().empty());
}

TEST_F(QuickValidation, NeedsAStatus) {
  EXPECT_EQ(Prove({HttpReply::Json(200, "{}")}), "200 client_v2: unexpect json response.");
}

TEST_F(QuickValidation, FailsWhenTheAuthorizationCannotBeFetched) {
  EXPECT_EQ(Prove({HttpReply::Text(500, "no")}),
            "200 client_v2: new_authz info: unexpect httpcode.");
}

}  // namespace
}  // namespace kova::test
