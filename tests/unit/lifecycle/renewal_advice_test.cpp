#include "lifecycle/renewal_advice.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>

#include "base/json.h"
#include "host_files.h"
#include "lifecycle/renewal_history.h"

namespace kova {
namespace {

using std::chrono::seconds;

constexpr std::int64_t kNow = 1'800'000'000;  // 2027-01-15T08:00:00Z
constexpr std::int64_t kDay = 86400;
constexpr RenewalWindow kWindow{kNow + 10 * kDay, kNow + 12 * kDay};

RenewalAnswer Answer(const RenewalWindow& window, const std::string& explanation = {}) {
  return {RenewalInfo{window, explanation}, "", seconds(3600)};
}

RenewalAdvice Advised(const RenewalWindow& window = kWindow) {
  RenewalAdvice advice;
  advice.certificate = "key.1";
  TakeAnswer(advice, Answer(window, "https://ca.example/why"), kNow);
  return advice;
}

TEST(RenewalAdvice, TakesOverWhatTheCaSaid) {
  const RenewalAdvice advice = Advised();
  EXPECT_EQ(advice.certificate, "key.1");
  EXPECT_EQ(advice.window, kWindow);
  EXPECT_GE(advice.moment, kWindow.start);
  EXPECT_LE(advice.moment, kWindow.end);
  EXPECT_EQ(advice.ask_again, kNow + 3600);
  EXPECT_EQ(advice.explanation_url, "https://ca.example/why");
}

TEST(RenewalAdvice, DrawsEvenlyFromTheWholeWindow) {
  constexpr int kDraws = 40000;
  std::array<int, 4> drawn{};  // of each second of a window of four
  for (int i = 0; i < kDraws; ++i) {
    const RenewalAdvice advice = Advised({kNow, kNow + 3});
    ++drawn.at(static_cast<size_t>(advice.moment - kNow));
  }
  // A quarter is 10,000, and some 87 the standard deviation of that.
  for (const int count : drawn) EXPECT_NEAR(count, kDraws / 4, 1000);
}

TEST(RenewalAdvice, KeepsTheMomentWhileTheWindowIsTheSame) {
  RenewalAdvice advice = Advised({kNow, kNow + 1000 * kDay});
  const std::int64_t moment = advice.moment;
  for (int i = 0; i < 100; ++i) {
    TakeAnswer(advice, Answer({kNow, kNow + 1000 * kDay}), kNow + i);
    ASSERT_EQ(advice.moment, moment);
  }
  EXPECT_EQ(advice.ask_again, kNow + 99 + 3600);
  EXPECT_EQ(advice.explanation_url, "");
}

TEST(RenewalAdvice, DrawsAnewWhenEitherEndOfTheWindowMoves) {
  for (const RenewalWindow& other :
       {RenewalWindow{kWindow.start, kWindow.start}, RenewalWindow{kWindow.end, kWindow.end}}) {
    RenewalAdvice advice = Advised({kWindow.start, kWindow.end});
    advice.moment = 0;
    TakeAnswer(advice, Answer(other), kNow);
    EXPECT_EQ(advice.window, other);
    EXPECT_EQ(advice.moment, other.start);
  }
}

TEST(RenewalAdvice, StaysWhenAnAnswerHasNoWindow) {
  RenewalAdvice advice = Advised();
  const RenewalAdvice before = advice;
  TakeAnswer(advice, {std::nullopt, "the CA answered 404.", seconds(60)}, kNow + 5000);
  EXPECT_EQ(advice.ask_again, kNow + 5060);
  EXPECT_EQ(advice.window, before.window);
  EXPECT_EQ(advice.moment, before.moment);
  EXPECT_EQ(advice.explanation_url, before.explanation_url);
}

TEST(RenewalAdvice, SaysWhenTheCaMayBeAskedAgain) {
  RenewalAdvice advice;
  EXPECT_TRUE(MayAskAgain(advice, kNow)) << "nothing is known";
  advice.ask_again = kNow + 100;
  EXPECT_FALSE(MayAskAgain(advice, kNow));
  EXPECT_FALSE(MayAskAgain(advice, kNow + 99));
  EXPECT_TRUE(MayAskAgain(advice, kNow + 100));
  EXPECT_FALSE(MayAskAgain(advice, kNow + 100 - kDay));
  EXPECT_TRUE(MayAskAgain(advice, kNow + 99 - kDay)) << "the clock was put back";
}

TEST(RenewalAdvice, CountsWhenItsMomentComesBeforeTheNextRun) {
  RenewalAdvice advice;
  EXPECT_FALSE(IsAdvisedBefore(advice, kNow)) << "nothing is known";
  advice = Advised({kNow + 50, kNow + 50});
  EXPECT_FALSE(IsAdvisedBefore(advice, kNow + 50));
  EXPECT_TRUE(IsAdvisedBefore(advice, kNow + 51));
  EXPECT_TRUE(IsAdvisedBefore(advice, kNow + 50 * kDay));
}

TEST(RenewalAdvice, KnowsThePeriodsOfTheRenewalJob) {
  RenewalSettings settings;
  EXPECT_EQ(TimeBetweenRuns(settings), 7 * kDay);
  const std::pair<const char*, std::int64_t> periods[] = {
      {"daily", 1}, {"weekly", 7}, {"monthly", 31}, {"hourly", 7}, {"", 7}};
  for (const auto& [period, days] : periods) {
    settings.cron_period = period;
    EXPECT_EQ(TimeBetweenRuns(settings), days * kDay) << period;
  }
}

// --- as the history keeps it ---

constexpr char kKept[] = R"({"certificate": "key.1", "ask_again": "2027-01-15T09:00:00Z",
  "window": {"start": "2027-01-25T08:00:00Z", "end": "2027-01-27T08:00:00Z"},
  "moment": "2027-01-26T08:00:00Z", "explanation_url": "https://ca.example/why"})";

RenewalAdvice Read(const std::string& text) {
  Json::Value member;
  EXPECT_TRUE(JsonFromText(text, member)) << text;
  return AdviceOfJson(member);
}

TEST(RenewalAdviceAsJson, IsWrittenAndReadBack) {
  const RenewalAdvice advice = Read(kKept);
  EXPECT_EQ(advice.certificate, "key.1");
  EXPECT_EQ(advice.ask_again, kNow + 3600);
  EXPECT_EQ(advice.window, kWindow);
  EXPECT_EQ(advice.moment, kNow + 11 * kDay);
  EXPECT_EQ(advice.explanation_url, "https://ca.example/why");
  Json::Value expected;
  ASSERT_TRUE(JsonFromText(kKept, expected));
  EXPECT_EQ(JsonOfAdvice(advice), expected);
}

TEST(RenewalAdviceAsJson, LeavesOutWhatIsNotKnown) {
  RenewalAdvice advice;
  advice.certificate = "key.1";
  advice.ask_again = kNow;
  EXPECT_EQ(JsonToString(JsonOfAdvice(advice)),
            R"({"ask_again":"2027-01-15T08:00:00Z","certificate":"key.1"})");
}

TEST(RenewalAdviceAsJson, OfAnotherTypeIsNone) {
  for (const char* text : {"null", "5", "[]", "{}", "\"key.1\"",
                           R"({"certificate": 5, "ask_again": 1800000000, "window": "now",
                               "moment": null, "explanation_url": {}})"}) {
    const RenewalAdvice advice = Read(text);
    EXPECT_EQ(advice.certificate + advice.explanation_url, "") << text;
    EXPECT_EQ(advice.ask_again, 0) << text;
    EXPECT_FALSE(advice.window) << text;
  }
}

TEST(RenewalAdviceAsJson, HasNoWindowUnlessTheMomentLiesInIt) {
  const auto with_moment = [](const std::string& moment) {
    std::string text = kKept;
    return Read(text.replace(text.find("2027-01-26T08:00:00Z"), 20, moment));
  };
  EXPECT_EQ(with_moment("2027-01-25T08:00:00Z").window, kWindow);
  EXPECT_EQ(with_moment("2027-01-27T08:00:00Z").window, kWindow);
  for (const char* moment : {"2027-01-25T07:59:59Z", "2027-01-27T08:00:01Z", "", "soon"}) {
    EXPECT_FALSE(with_moment(moment).window) << moment;
    EXPECT_EQ(with_moment(moment).certificate, "key.1") << moment;
  }
}

TEST(RenewalAdviceInTheHistory, StaysThroughFailuresAndGoesWithASuccess) {
  std::filesystem::remove_all(kHistoryFolder);
  RenewalHistory history;
  history.advice = Read(kKept);
  NoteFailure(history, SLError(102, "why", "client_v2", 1), kNow);
  WriteRenewalHistory("id", history);
  history = ReadRenewalHistory("id");
  EXPECT_EQ(history.failures, 1);
  ASSERT_TRUE(history.advice);
  EXPECT_EQ(JsonOfAdvice(*history.advice), JsonOfAdvice(Read(kKept)));
  NoteSuccess(history, kNow);
  WriteRenewalHistory("id", history);
  EXPECT_FALSE(ReadRenewalHistory("id").advice);
  EXPECT_EQ(test::ReadFile(std::string(kHistoryFolder) + "/id.json").find("ari"),
            std::string::npos);
}

}  // namespace
}  // namespace kova
