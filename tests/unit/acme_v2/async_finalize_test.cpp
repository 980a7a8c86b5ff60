#include <ctime>

#include "issue_fixture.h"
#include "wire_clock.h"

std::chrono::seconds kova::test::on_the_wire{0};

// The linker puts the second in the place of the clock's own call, and keeps that as the first.
std::chrono::steady_clock::time_point RealNow() asm("__real__ZNSt6chrono3_V212steady_clock3nowEv");
std::chrono::steady_clock::time_point WireNow() asm("__wrap__ZNSt6chrono3_V212steady_clock3nowEv");

std::chrono::steady_clock::time_point WireNow() { return RealNow() + kova::test::on_the_wire; }

namespace kova::test {
namespace {

constexpr char kOn[] = R"({"skipdns01": true, "asyncfinalize": true})";

class AsyncFinalize : public IssueTest {
 protected:
  AsyncFinalize() { Settings(kOn); }

  [[nodiscard]] HttpReply Order(const std::string& status, bool with_certificate = false,
                                const std::string& retry_after = {}) const {
    HttpReply reply = HttpReply::Json(200, ca_.Order(status, with_certificate));
    if (!retry_after.empty()) reply.headers.push_back("Retry-After: " + retry_after);
    return reply;
  }

  static HttpReply NotReady() {
    return ScriptedCa::Problem(403, "orderNotReady", "wait for the authorizations");
  }

  // The wait after a finalize reply with that Retry-After.
  Milliseconds WaitAfter(const std::string& retry_after) {
    sleeps_.Clear();
    ca_.Once(kFinalize, Order("processing", false, retry_after));
    EXPECT_EQ(ErrorOfNew(), "nothing") << retry_after;
    EXPECT_EQ(sleeps_.Durations().size(), 1U) << retry_after;
    return sleeps_.Total();
  }
};

constexpr Milliseconds kFirst{100};

std::string HttpDate(std::time_t time) {
  char text[64];
  std::strftime(text, sizeof text, "%a, %d %b %Y %H:%M:%S GMT", std::gmtime(&time));
  return text;
}

TEST_F(AsyncFinalize, AsksNothingMoreWhenTheCertificateIsThere) {
  EXPECT_EQ(ErrorOfNew(), "nothing");
  EXPECT_THAT(ca_.Routes(), ElementsAre(kFinalize, kCertificate));
  ca_.ClearRequests();
  ca_.Once(kFinalize, Order("processing", true));
  EXPECT_EQ(ErrorOfNew(), "nothing");
  EXPECT_THAT(ca_.Routes(), ElementsAre(kFinalize, kCertificate));
  EXPECT_EQ(sleeps_.Durations(), Waits{});
}

TEST_F(AsyncFinalize, FetchesTheOrderUntilItIsValid) {
  ca_.Once(kFinalize, Order("processing"));
  ca_.Once(kOrder, Order("processing"), 2);
  EXPECT_EQ(ErrorOfNew(), "nothing");
  EXPECT_THAT(ca_.Routes(), ElementsAre(kFinalize, kOrder, kOrder, kOrder, kCertificate));
  EXPECT_EQ(ca_.Signed(kOrder)[0].payload, "");
  EXPECT_EQ(sleeps_.Durations(), (Waits{kFirst, 2 * kFirst, 4 * kFirst}));
}

TEST_F(AsyncFinalize, WaitsForBothStatusAndCertificate) {
  ca_.Once(kFinalize, Order("processing"));
  ca_.Once(kOrder, Order("valid", false));
  ca_.Once(kOrder, Order("processing", true));
  ca_.Once(kOrder, Order("ready", false));
  EXPECT_EQ(ErrorOfNew(), "nothing");
  EXPECT_EQ(ca_.Count(kOrder), 4U);
}

TEST_F(AsyncFinalize, WaitsAsLongAsTheCaAsks) {
  EXPECT_EQ(WaitAfter("3"), Seconds(3));
  EXPECT_EQ(WaitAfter("10"), Seconds(10));
  EXPECT_EQ(WaitAfter("11"), Seconds(10));
  EXPECT_EQ(WaitAfter("86400"), Seconds(10));
  EXPECT_EQ(WaitAfter("99999999999999999999"), Seconds(10));
  EXPECT_EQ(WaitAfter("0"), Seconds(1));
  EXPECT_EQ(WaitAfter("-5"), kFirst);
  EXPECT_EQ(WaitAfter("soon"), kFirst);
}

TEST_F(AsyncFinalize, WaitsUntilTheDateThatTheCaNames) {
  const std::time_t now = std::time(nullptr);
  const Milliseconds wait = WaitAfter(HttpDate(now + 8));
  EXPECT_GE(wait, Seconds(5));
  EXPECT_LE(wait, Seconds(8));
  EXPECT_EQ(WaitAfter(HttpDate(now + 3600)), Seconds(10));
  EXPECT_EQ(WaitAfter(HttpDate(now - 3600)), Seconds(1));
}

TEST_F(AsyncFinalize, GoesByTheRetryAfterOfTheLatestReply) {
  ca_.Once(kFinalize, Order("processing", false, "2"));
  ca_.Once(kOrder, Order("processing", false, "7"));
  ca_.Once(kOrder, Order("processing"));
  EXPECT_EQ(ErrorOfNew(), "nothing");
  EXPECT_EQ(sleeps_.Durations(), (Waits{Seconds(2), Seconds(7), kFirst}));
}

TEST_F(AsyncFinalize, EndsInATimeoutAfterSixtySeconds) {
  ca_.Once(kFinalize, Order("processing"));
  ca_.Always(kOrder, Order("processing"));
  EXPECT_EQ(ErrorOfNew(), "102 client_v2: Order timeout");
  EXPECT_EQ(sleeps_.Total(), Milliseconds(59100));  // another two seconds would be too long
  EXPECT_EQ(ca_.Count(kOrder), 33U);
}

TEST_F(AsyncFinalize, TakesAllOfTheSixtySeconds) {
  ca_.Once(kFinalize, Order("processing", false, "10"));
  ca_.Always(kOrder, Order("processing", false, "10"));
  EXPECT_EQ(ErrorOfNew(), "102 client_v2: Order timeout");
  EXPECT_EQ(sleeps_.Durations(), Waits(6, Seconds(10)));
}

TEST_F(AsyncFinalize, WaitsLongerEachTimeUpToTwoSeconds) {
  ca_.Once(kFinalize, Order("processing"));
  ca_.Once(kOrder, Order("processing"), 4);
  ca_.Once(kOrder, Order("processing", false, "5"));
  ca_.Once(kOrder, Order("processing"), 2);
  EXPECT_EQ(ErrorOfNew(), "nothing");
  EXPECT_EQ(sleeps_.Durations(), (Waits{kFirst, 2 * kFirst, 4 * kFirst, 8 * kFirst, 16 * kFirst,
                                        Seconds(5), Seconds(2), Seconds(2)}));
}

TEST_F(AsyncFinalize, CountsTimeOnTheWire) {
  ca_.Once(kFinalize, Order("processing", false, "10"));
  ca_.Always(kOrder, Order("processing", false, "10"));
  ca_.Before(kOrder, [] { on_the_wire += Seconds(15); });  // so long takes each answer
  EXPECT_EQ(ErrorOfNew(), "102 client_v2: Order timeout");
  on_the_wire = Seconds(0);
  EXPECT_EQ(ca_.Count(kOrder), 4U);  // after 60 s, no pause of 10 fits
}

TEST_F(AsyncFinalize, TakesNoCertificateByAnotherNameForNone) {
  for (const char* none : {"null", "\"\""}) {
    const HttpReply reply = HttpReply::Json(
        200, std::string(R"({"status": "processing", "certificate": )") + none + "}");
    ca_.ClearRequests();
    ca_.Once(kFinalize, reply);
    ca_.Once(kOrder, reply);
    ca_.Once(kOrder, HttpReply::Json(
                         200, std::string(R"({"status": "valid", "certificate": )") + none + "}"));
    EXPECT_EQ(ErrorOfNew(), "nothing") << none;
    EXPECT_THAT(ca_.Routes(), ElementsAre(kFinalize, kOrder, kOrder, kOrder, kCertificate));
  }
  ca_.Once(kFinalize, HttpReply::Json(200, R"({"status": "processing", "certificate": 5})"));
  EXPECT_EQ(ErrorOfNew(), "200 client_v2: unexpect json response.");
}

TEST_F(AsyncFinalize, SaysWhyFinalizeFoundTheOrderInvalid) {
  ca_.Once(kFinalize, HttpReply::Json(
                          200, R"({"status": "invalid", "error": {"detail": "CAA forbids 5%s"}})"));
  EXPECT_EQ(ErrorOfNew(), "200 client_v2: CAA forbids 5%s");
  EXPECT_THAT(ca_.Routes(), ElementsAre(kFinalize));
}

TEST_F(AsyncFinalize, NeverWaitsBeyondSixtySeconds) {
  ca_.Once(kFinalize, Order("processing", false, "7"));
  ca_.Always(kOrder, Order("processing", false, "7"));
  EXPECT_EQ(ErrorOfNew(), "102 client_v2: Order timeout");
  EXPECT_EQ(sleeps_.Durations(), Waits(8, Seconds(7)));
  EXPECT_THAT(ListFolder(kArchive), IsEmpty());
}

TEST_F(AsyncFinalize, SaysWhyTheOrderTurnedInvalid) {
  const std::pair<const char*, const char*> orders[] = {
      {R"({"status": "invalid", "error": {"detail": "CAA forbids 100%s"}})", "CAA forbids 100%s"},
      {R"({"status": "invalid", "certificate": "u", "error": {"detail": "no"}})", "no"},
      {R"({"status": "invalid", "error": "no"})", ""},
      {R"({"status": "invalid", "error": {"detail": 5}})", ""},
      {R"({"status": "invalid"})", ""}};
  for (const auto& [order, detail] : orders) {
    ca_.Once(kFinalize, Order("processing"));
    ca_.Once(kOrder, HttpReply::Json(200, order));
    EXPECT_EQ(ErrorOfNew(), std::string("200 client_v2: ") + detail) << order;
  }
}

TEST_F(AsyncFinalize, FailsWhenTheOrderCannotBeFetched) {
  for (const int status : {201, 404, 500}) {
    syslog_.Clear();
    ca_.Once(kFinalize, Order("processing"));
    ca_.Once(kOrder, HttpReply::Text(status, "no"));
    EXPECT_EQ(ErrorOfNew(), "200 client_v2: new-cert: Unexpect httpcode. (order)");
    EXPECT_THAT(syslog_.Texts(),
                ElementsAre("client_v2:# Failed to fetch order " + ca_.Url("/order/1") + " [" +
                            std::to_string(status) + "]"));
  }
  for (const char* body : {"[]", "null", "5"}) {
    ca_.Once(kFinalize, Order("processing"));
    ca_.Once(kOrder, HttpReply::Json(200, body));
    EXPECT_EQ(ErrorOfNew(), "200 client_v2: unexpect json response.") << body;
  }
  ca_.Once(kFinalize, Order("processing"));
  ca_.Once(kOrder, HttpReply::Text(200, "<html>"));
  EXPECT_EQ(ErrorOfNew(), "200 client_network: body is not json.");
}

TEST_F(AsyncFinalize, FinalizesAgainOnceTheOrderIsReady) {
  ca_.Once(kFinalize, NotReady());
  ca_.Once(kOrder, Order("pending"), 2);
  ca_.Once(kOrder, Order("ready"));
  EXPECT_EQ(ErrorOfNew(), "nothing");
  EXPECT_THAT(ca_.Routes(),
              ElementsAre(kFinalize, kOrder, kOrder, kOrder, kFinalize, kCertificate));
  EXPECT_EQ(ca_.Signed(kFinalize)[0].payload, ca_.Signed(kFinalize)[1].payload);
  EXPECT_EQ(sleeps_.Durations(), (Waits{kFirst, 2 * kFirst, 4 * kFirst}));
}

TEST_F(AsyncFinalize, HeedsTheRetryAfterOfTheRefusal) {
  HttpReply refusal = NotReady();
  refusal.headers.emplace_back("Retry-After: 4");
  ca_.Once(kFinalize, refusal);
  ca_.Once(kOrder, Order("ready"));
  EXPECT_EQ(ErrorOfNew(), "nothing");
  EXPECT_EQ(sleeps_.Durations(), Waits{Seconds(4)});
}

TEST_F(AsyncFinalize, FinalizesAgainNoMoreThanOnce) {
  ca_.Once(kFinalize, NotReady(), 2);
  ca_.Once(kOrder, Order("ready"));
  EXPECT_EQ(ErrorOfNew(), "200 client_v2: new-cert: Unexpect httpcode. (new-cert)");
  EXPECT_THAT(ca_.Routes(), ElementsAre(kFinalize, kOrder, kFinalize));
  EXPECT_THAT(syslog_.Texts(),
              ElementsAre("client_v2:# Failed to new cert with unknown (unknown) [403]"));
}

TEST_F(AsyncFinalize, WaitsForReadinessAndThenForTheCertificate) {
  ca_.Once(kFinalize, NotReady());
  ca_.Once(kOrder, Order("ready"));
  ca_.Once(kFinalize, Order("processing"));
  ca_.Once(kOrder, Order("processing"));
  EXPECT_EQ(ErrorOfNew(), "nothing");
  EXPECT_THAT(ca_.Routes(),
              ElementsAre(kFinalize, kOrder, kFinalize, kOrder, kOrder, kCertificate));
}

TEST_F(AsyncFinalize, GivesUpOnAnOrderThatNeverGetsReady) {
  ca_.Once(kFinalize, NotReady());
  ca_.Always(kOrder, Order("pending", false, "10"));
  EXPECT_EQ(ErrorOfNew(), "102 client_v2: Order timeout");
  EXPECT_EQ(sleeps_.Total(), Milliseconds(50100));
  ca_.Once(kFinalize, NotReady());
  ca_.Once(kOrder,
           HttpReply::Json(200, R"({"status": "invalid", "error": {"detail": "too late"}})"));
  EXPECT_EQ(ErrorOfNew(), "200 client_v2: too late");
  EXPECT_EQ(ca_.Count(kCertificate), 0U);
}

TEST_F(AsyncFinalize, TakesNoOtherRefusalForNotReady) {
  for (const HttpReply& reply :
       {ScriptedCa::Problem(403, "unauthorized", "no"), HttpReply::Text(403, "<html>"),
        HttpReply::Json(403, "[]"), ScriptedCa::Problem(500, "orderNotReady", "no"),
        ScriptedCa::Problem(400, "orderNotReady", "no")}) {
    ca_.ClearRequests();
    ca_.Once(kFinalize, reply);
    EXPECT_EQ(ErrorOfNew(), "200 client_v2: new-cert: Unexpect httpcode. (new-cert)");
    EXPECT_THAT(ca_.Routes(), ElementsAre(kFinalize));
  }
}

TEST_F(AsyncFinalize, IsOffUnlessTheSettingIsTrue) {
  for (const char* settings : {R"({"asyncfinalize": false})", R"({"asyncfinalize": 1})",
                               R"({"asyncfinalize": "true"})", "{}", "{"}) {
    Settings(settings);
    ca_.Once(kFinalize, HttpReply::Json(200, R"({"status": "invalid", "certificate": ")" +
                                                 ca_.Url("/certificate/1") + "\"}"));
    EXPECT_EQ(ErrorOfNew(), "nothing") << settings;
    client_->NewNonce();  // the download that fails takes one and brings none
    ca_.Once(kFinalize, Order("processing"));
    EXPECT_EQ(ErrorOfNew(), "100 client_network: Server is not reachable.") << settings;
    ca_.Once(kFinalize, NotReady());
    EXPECT_EQ(ErrorOfNew(), "200 client_v2: new-cert: Unexpect httpcode. (new-cert)") << settings;
  }
  EXPECT_EQ(ca_.Count(kOrder), 0U);
  EXPECT_EQ(sleeps_.Durations(), Waits{});
}

}  // namespace
}  // namespace kova::test
