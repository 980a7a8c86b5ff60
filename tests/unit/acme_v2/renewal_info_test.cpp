// What the CA says about the time of a renewal.
#include "acme_v2/renewal_info.h"

#include <curl/curl.h>

#include <cstdarg>
#include <thread>
#include <tuple>

#include "../crypto/made_certificate.h"
#include "client_fixture.h"
#include "wire_clock.h"

namespace {

long time_limit = 0;  // of the last request that has one, in milliseconds

}  // namespace

// The linker sends the product's calls of the second there.
extern "C" {
CURLcode __real_curl_easy_setopt(CURL*, CURLoption, ...);               // NOLINT
CURLcode __wrap_curl_easy_setopt(CURL* handle, unsigned number, ...) {  // NOLINT
  std::va_list args;
  va_start(args, number);
  void* value = va_arg(args, void*);  // a long is passed the same way
  va_end(args);
  const auto option = static_cast<CURLoption>(number);
  if (option == CURLOPT_TIMEOUT_MS) time_limit = reinterpret_cast<long>(value);
  return __real_curl_easy_setopt(handle, option, value);
}
}

namespace kova::test {
namespace {

// --- RenewalIdentifier ---

// Of a certificate with that serial number (hexadecimal), by an issuer whose key is known as that.
std::string Identifier(const std::string& serial, const std::string& issuer_key) {
  const MadeCertificate root =
      MakeCertificate({.common_name = "root", .is_authority = true, .key_id = issuer_key});
  return RenewalIdentifier(
      Certificate(std::move(MakeCertificate({.serial = serial}, &root).certificate)));
}

constexpr char kIssuerKey[] = "69885B6B87464041E1B37B847BA0AE2CDE01C8D4";

TEST(RenewalIdentifier, IsTheStandardsOwnExample) {
  EXPECT_EQ(Identifier("87654321", kIssuerKey), "aYhba4dGQEHhs3uEe6CuLN4ByNQ.AIdlQyE");
}

TEST(RenewalIdentifier, HasTheOctetsOfTheSerialNumber) {
  const std::string key = "aYhba4dGQEHhs3uEe6CuLN4ByNQ.";
  EXPECT_EQ(Identifier("01", kIssuerKey), key + "AQ");
  EXPECT_EQ(Identifier("7F", kIssuerKey), key + "fw");
  EXPECT_EQ(Identifier("80", kIssuerKey), key + "AIA");
  EXPECT_EQ(Identifier("7FFFFFFFFFFFFFFF", kIssuerKey), key + "f_________8");
  EXPECT_EQ(Identifier("FFFFFFFFFFFFFFFF", kIssuerKey), key + "AP__________");
  EXPECT_EQ(Identifier("0123456789ABCDEF0123456789ABCDEF01234567", kIssuerKey),
            key + "ASNFZ4mrze8BI0VniavN7wEjRWc");
  EXPECT_EQ(Identifier("FB" + std::string(38, 'F'), kIssuerKey),
            key + "APv_________________________");
}

TEST(RenewalIdentifier, HasTheIssuersKeyHoweverLongItIs) {
  EXPECT_EQ(Identifier("01", "FFFFFF"), "____.AQ");
  EXPECT_EQ(Identifier("01", "FBEFBE"), "----.AQ");
  EXPECT_EQ(Identifier("01", std::string(64, '0')), std::string(43, 'A') + ".AQ");
}

TEST(RenewalIdentifier, IsEmptyWhenTheIssuersKeyIsNotNamed) {
  EXPECT_EQ(RenewalIdentifier(Certificate(std::move(MakeCertificate({}).certificate))), "");
}

// --- ParseRenewalInfo ---

constexpr char kStart[] = "2027-01-15T08:00:00Z";  // 1'800'000'000
constexpr char kEnd[] = "2027-01-17T08:00:00Z";
constexpr RenewalWindow kWindow{1'800'000'000, 1'800'172'800};

TEST(ParseRenewalInfo, TakesTheWindow) {
  const std::optional<RenewalInfo> info = ParseRenewalInfo(ScriptedCa::Window(kStart, kEnd));
  ASSERT_TRUE(info.has_value());
  EXPECT_EQ(info->window, kWindow);
  EXPECT_EQ(info->explanation_url, "");
  EXPECT_EQ(ParseRenewalInfo(ScriptedCa::Window("2027-01-15T09:30:00.999+01:30", kEnd))->window,
            kWindow);
}

TEST(ParseRenewalInfo, TakesAWindowHoweverShort) {
  const auto of = [](const char* start, const char* end) {
    return ParseRenewalInfo(ScriptedCa::Window(start, end));
  };
  EXPECT_EQ(of(kStart, "2027-01-15T08:00:00.5Z")->window,
            (RenewalWindow{kWindow.start, kWindow.start}));
  EXPECT_FALSE(of(kStart, kStart)) << "of no length";
  EXPECT_FALSE(of(kStart, "2027-01-15T09:00:00+01:00")) << "of no length";
  EXPECT_FALSE(of(kEnd, kStart)) << "the end comes first";
}

TEST(ParseRenewalInfo, TakesNothingElse) {
  const std::string start = std::string("\"start\": \"") + kStart + "\"";
  const std::string end = std::string("\"end\": \"") + kEnd + "\"";
  for (const std::string& text :
       {std::string(), std::string("<html>"), std::string("{"), std::string("null"),
        std::string("[]"), std::string("5"), std::string("{}"), std::string(100000, '['),
        std::string(R"({"suggestedWindow": null})"), std::string(R"({"suggestedWindow": "x"})"),
        "{\"suggestedWindow\": [{" + start + "," + end + "}]}",
        "{\"suggestedWindow\": {" + start + "}}", "{\"suggestedWindow\": {" + end + "}}",
        "{\"suggestedWindow\": {" + start + ", \"end\": 1800172800}}",
        "{\"suggestedWindow\": {\"start\": 1800000000, " + end + "}}",
        "{\"suggestedWindow\": {\"start\": null, " + end + "}}",
        "{\"suggestedWindow\": {\"start\": \"soon\", " + end + "}}",
        "{" + start + "," + end + "}"}) {
    EXPECT_FALSE(ParseRenewalInfo(text)) << text;
  }
}

std::string Explained(const std::string& json_value) {
  const std::string text = ScriptedCa::Window(kStart, kEnd);
  const std::optional<RenewalInfo> info = ParseRenewalInfo(
      text.substr(0, text.rfind('}')) + ", \"explanationURL\": " + json_value + "}");
  return info ? info->explanation_url : "no window";
}

TEST(ParseRenewalInfo, TakesTheExplanationAsOneShortLine) {
  EXPECT_EQ(Explained("\"https://ca.example/why?a=%41~\""), "https://ca.example/why?a=%41~");
  EXPECT_EQ(Explained(R"("a\nb\u0000c\u001b[1m\u007f\u00e4")"), "a b c [1m   ");
  EXPECT_EQ(Explained("\"" + std::string(513, 'x') + "\""), std::string(512, 'x'));
  for (const char* other : {"5", "null", "{}", "[\"https://ca.example\"]", "\"\""}) {
    EXPECT_EQ(Explained(other), "") << other;
  }
}

// --- RenewalInfoSource ---

class Source : public ClientTest {
 protected:
  Source() { ca_.GiveRenewalInfo(Answer()); }
  ~Source() override { on_the_wire = Seconds(0); }

  static HttpReply Answer(const std::string& header = {}) {
    HttpReply reply = HttpReply::Json(200, ScriptedCa::Window(kStart, kEnd));
    if (!header.empty()) reply.headers.push_back(header);
    return reply;
  }

  // "1 window", "0 PROBLEM", each with the seconds to the next question, or "none".
  std::string Ask(const std::string& identifier = "id.1") {
    const std::optional<RenewalAnswer> answer = source_.Ask(identifier);
    if (!answer) return "none";
    const std::string pause =
        answer->ask_again_in ? " " + std::to_string(answer->ask_again_in->count()) : "";
    if (!answer->info) return "0 " + answer->problem + pause;
    EXPECT_EQ(answer->info->window, kWindow);
    EXPECT_EQ(answer->problem, "");
    return "1 window" + pause;
  }

  Settings settings_;
  RenewalInfoSource source_{ca_.DirectoryUrl(), settings_};
};

constexpr char kDirectory[] = "GET /directory";
constexpr char kFirst[] = "GET /renewal-info/id.1";
constexpr char kSecond[] = "GET /renewal-info/id.2";

TEST_F(Source, AsksForEachCertificateAfterOneLookAtTheDirectory) {
  EXPECT_EQ(Ask("id.1"), "1 window 21600");
  EXPECT_EQ(Ask("id.2"), "1 window 21600");
  EXPECT_THAT(ca_.Routes(), ElementsAre(kDirectory, kFirst, kSecond));
  EXPECT_THAT(ca_.Signed(), IsEmpty());
}

TEST_F(Source, AddsNoSecondSlash) {
  ca_.Once(kDirectory,
           HttpReply::Json(200, "{\"renewalInfo\": \"" + ca_.Url("/renewal-info/") + "\"}"));
  EXPECT_EQ(Ask(), "1 window 21600");
  EXPECT_THAT(ca_.Routes(), ElementsAre(kDirectory, kFirst));
}

TEST_F(Source, SaysNothingOfACaThatGivesNoSuchInformation) {
  for (const char* directory :
       {"{}", "[]", "null", "5", R"({"renewalInfo": 5})", R"({"renewalInfo": null})",
        R"({"renewalInfo": ""})", R"({"renewalInfo": {"url": "http://x"}})"}) {
    ca_.Reset();
    ca_.Once(kDirectory, HttpReply::Json(200, directory));
    RenewalInfoSource source(ca_.DirectoryUrl(), settings_);
    EXPECT_FALSE(source.Ask("id.1")) << directory;
    EXPECT_FALSE(source.Ask("id.2")) << directory;
    EXPECT_THAT(ca_.Routes(), ElementsAre(kDirectory)) << directory;
  }
}

TEST_F(Source, TakesThePauseThatTheCaAsksFor) {
  const std::pair<const char*, const char*> pauses[] = {
      {"Retry-After: 7200", "1 window 7200"},
      {"retry-after:7200", "1 window 7200"},
      {"Retry-After: 0", "1 window 60"},
      {"Retry-After: 59", "1 window 60"},
      {"Retry-After: 86401", "1 window 86400"},
      {"Retry-After: 99999999999", "1 window 86400"},
      {"Retry-After: soon", "1 window 21600"},
      {"Retry-After: -5", "1 window 21600"},
      {"Retry-After: Wed, 21 Oct 2015 07:28:00 GMT", "1 window 60"},
      {"Retry-After: Fri, 31 Dec 2199 23:59:59 GMT", "1 window 86400"}};
  for (const auto& [header, answer] : pauses) {
    ca_.Once(kFirst, Answer(header));
    EXPECT_EQ(Ask(), answer) << header;
  }
}

TEST_F(Source, SaysWhatIsWrongWithAnAnswerAndAsksForTheNextCertificate) {
  const std::pair<HttpReply, const char*> answers[] = {
      {ScriptedCa::Problem(404, "malformed", "unknown"), "0 the CA answered 404. 21600"},
      {HttpReply::Text(400, ""), "0 the CA answered 400. 21600"},
      {HttpReply::Text(204, ""), "0 the CA answered 204. 21600"},
      {HttpReply::Text(403, "", {"Retry-After: 70"}), "0 the CA answered 403. 70"},
      {HttpReply::Redirect(302, ca_.Url("/renewal-info/id.2")), "0 the CA answered 302. 21600"},
      {HttpReply::Json(200, "{}"), "0 the CA's answer has no usable window. 21600"},
      {HttpReply::Text(200, "<html>", {"Retry-After: 70"}),
       "0 the CA's answer has no usable window. 70"}};
  for (const auto& [reply, answer] : answers) {
    ca_.Once(kFirst, reply);
    EXPECT_EQ(Ask(), answer);
    EXPECT_EQ(Ask("id.2"), "1 window 21600") << answer;
  }
  EXPECT_EQ(ca_.Count(kDirectory), 1U);
}

TEST_F(Source, LeavesACaAloneThatAsksForPatienceOrHasTrouble) {
  const std::pair<HttpReply, const char*> answers[] = {
      {ScriptedCa::Problem(429, "rateLimited", "slow down"), "the CA answered 429. 21600"},
      {HttpReply::Text(429, "", {"Retry-After: 3600"}), "the CA answered 429. 3600"},
      {HttpReply::Text(500, ""), "the CA answered 500. 21600"},
      {HttpReply::Text(503, "", {"Retry-After: 120"}), "the CA answered 503. 120"}};
  for (const auto& [reply, answer] : answers) {
    for (const char* route : {kDirectory, kFirst}) {
      ca_.Reset();
      ca_.Once(route, reply);
      RenewalInfoSource source(ca_.DirectoryUrl(), settings_);
      const std::optional<RenewalAnswer> first = source.Ask("id.1");
      EXPECT_EQ(first->problem + " " + std::to_string(first->ask_again_in->count()), answer);
      const std::optional<RenewalAnswer> second = source.Ask("id.2");
      EXPECT_EQ(second->problem, "");
      EXPECT_EQ(second->ask_again_in, first->ask_again_in);
      EXPECT_FALSE(first->info || second->info);
      EXPECT_EQ(ca_.Count(kSecond), 0U);
      EXPECT_EQ(ca_.Count(kDirectory), 1U);
    }
  }
}

TEST_F(Source, LeavesACaAloneThatCannotBeReachedOrTalksRubbish) {
  const std::string unreachable = "0 Server is not reachable.";
  for (const auto& [route, reply, answer] :
       {std::tuple(kDirectory, HttpReply::Drop(), unreachable),
        std::tuple(kDirectory, HttpReply::Text(200, "<html>"), std::string("0 body is not json.")),
        std::tuple(kFirst, HttpReply::Drop(), unreachable),
        std::tuple(kFirst, HttpReply::Raw("no HTTP"), unreachable),
        std::tuple(kFirst, HttpReply::CutShort("{}  ", 2), unreachable),
        std::tuple(kFirst, HttpReply::Endless(std::string(4096, ' ')), unreachable),
        std::tuple(kFirst, HttpReply::Text(200, std::string((256 << 10) + 1, ' ')), unreachable)}) {
    ca_.Reset();
    ca_.Always(route, reply);
    RenewalInfoSource source(ca_.DirectoryUrl(), settings_);
    const std::optional<RenewalAnswer> first = source.Ask("id.1");
    EXPECT_EQ("0 " + first->problem, answer);
    EXPECT_FALSE(first->info || first->ask_again_in);
    EXPECT_FALSE(source.Ask("id.2"));
    EXPECT_EQ(ca_.Count(kSecond), 0U);
  }
}

TEST_F(Source, OfAnotherProtocolIsNotReached) {
  ca_.Once(kDirectory, HttpReply::Json(200, R"({"renewalInfo": "file:///etc"})"));
  EXPECT_EQ(Ask(), "0 Server is not reachable.");
}

TEST_F(Source, IsLeftAloneAfterHalfAnHour) {
  EXPECT_EQ(Ask(), "1 window 21600");
  on_the_wire = Seconds(1799);
  EXPECT_EQ(Ask(), "1 window 21600");
  on_the_wire = Seconds(1801);
  EXPECT_EQ(Ask(), "0 the CA takes too long.");
  EXPECT_EQ(Ask(), "none");
  EXPECT_EQ(ca_.Count(kFirst), 2U);
}

// A listener that lets nobody's request be answered.
TEST_F(Source, WaitsNoLongerThanTheSettingsAndNeverLongerThanTenSeconds) {
  ca_.Before(kFirst, [] { std::this_thread::sleep_for(Seconds(2)); });
  settings_.transfer_timeout = 1;
  RenewalInfoSource source(ca_.DirectoryUrl(), settings_);
  const auto before = std::chrono::system_clock::now();
  EXPECT_EQ(source.Ask("id.1")->problem, "Server is not reachable.");
  EXPECT_LT(std::chrono::system_clock::now() - before, Milliseconds(1900));
  for (const int longer : {0, 120}) {
    settings_.transfer_timeout = longer;
    RenewalInfoSource patient(ca_.DirectoryUrl(), settings_);
    time_limit = 0;
    EXPECT_TRUE(patient.Ask("id.1")->info) << longer;
    EXPECT_EQ(time_limit, 10000) << longer;
  }
}

}  // namespace
}  // namespace kova::test
