#include "lifecycle/advice.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

namespace kova {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

// All that a failure document may carry, and the number of an unusable record in a history.
constexpr int kPrinted[] = {kUnusableRecord,         code::kUnreachable,
                            code::kConnection,       code::kRefused,
                            code::kAccountRateLimit, code::kOrderRateLimit,
                            code::kAccountRefused,   code::kNoDomain,
                            code::kNotKovaDdns,      code::kDns,
                            code::kUnauthorized,     code::kProtocol,
                            code::kAccountKey,       code::kLocal,
                            code::kChallengeSetup,   code::kNoNonce,
                            code::kBadNonceFinalize};

TEST(AdviceTest, EachCodeThatIsPrintedHasAdviceOfItsOwn) {
  const std::string_view general = AdviceOn(999, "");
  std::set<std::string_view> seen = {general};
  for (const int number : kPrinted) {
    EXPECT_TRUE(seen.insert(AdviceOn(number, "client_v2")).second) << number;
  }
}

TEST(AdviceTest, AdviceIsOneShortSentence) {
  for (const int number : kPrinted) {
    const std::string advice(AdviceOn(number, ""));
    EXPECT_THAT(advice, EndsWith(".")) << number;
    EXPECT_LE(advice.size(), 170U) << number;
    EXPECT_EQ(Visible(advice, 170), advice) << number;
    EXPECT_TRUE(advice.front() >= 'A' && advice.front() <= 'Z') << number;
  }
}

TEST(AdviceTest, AnUnknownCodeGetsGeneralAdvice) {
  EXPECT_EQ(AdviceOn(999, "utils"), "See the system log for what failed.");
}

TEST(AdviceTest, AFailedDeploymentIsNotTakenForALostAccount) {
  EXPECT_THAT(std::string(AdviceOn(201, "kova-letsencrypt")), HasSubstr("kova-archive deploy"));
  EXPECT_THAT(std::string(AdviceOn(201, "client_v2")), HasSubstr("kova-archive account list"));
}

TEST(AdviceTest, ARefusedChangeOfAnAccountIsNoWrongAnswer) {
  EXPECT_THAT(std::string(AdviceOn(200, "account")), StartsWith("Nothing was changed"));
}

TEST(ExplainTest, SentenceHasNameWhatWasSaidCodeAndAdvice) {
  const SLError error(109, "NXDOMAIN looking up A.", "client_v2", 1);
  const Explanation told = Explain(error, {"a.example"});
  EXPECT_EQ(told.code, 109);
  EXPECT_EQ(told.name, "a.example");
  EXPECT_EQ(told.detail, "NXDOMAIN looking up A");
  EXPECT_EQ(told.advice, AdviceOn(109, ""));
  EXPECT_EQ(Sentence(told), "a.example: NXDOMAIN looking up A [109]. " + told.advice);
}

TEST(ExplainTest, TheNameThatFailedStandsForAllOfThem) {
  SLError error(110, "no", "client_v2", 1);
  error.name = "b.example";
  EXPECT_EQ(Explain(error, {"a.example", "b.example"}).name, "b.example");
}

TEST(ExplainTest, WithoutItAFewNamesAreToldAndTheRestCounted) {
  const SLError error(104, "slow", "client_v2", 1);
  EXPECT_EQ(Explain(error, {}).name, "");
  EXPECT_THAT(Sentence(Explain(error, {})), StartsWith("slow [104]. "));
  EXPECT_EQ(Explain(error, {"a", "b", "c"}).name, "a, b, c");
  EXPECT_EQ(Explain(error, {"a", "b", "c", "d", "e"}).name, "a, b, c and 2 more");
}

TEST(ExplainTest, WhatTheAuthoritySaidGoesBeforeOurOwnMessage) {
  SLError error(109, "Failed to new certificate.", "kova-letsencrypt", 1);
  EXPECT_EQ(Explain(error, {}).detail, "Failed to new certificate");
  error.cause = "no such host";
  EXPECT_EQ(Explain(error, {}).detail, "no such host");
}

TEST(ExplainTest, AFailureWithoutAWordSaysSo) {
  EXPECT_EQ(Explain(SLError(200, "", "client_v2", 1), {}).detail, "no reason was given");
  EXPECT_EQ(Explain(SLError(200, " .\n", "client_v2", 1), {}).detail, "no reason was given");
}

TEST(ExplainTest, NothingFromAServerControlsTheTerminal) {
  SLError error(200, "a\x1b]0;x\x07\r\nb\xe2\x80\xae", "client_v2", 1);
  error.name = "n\x1b[2J";
  EXPECT_EQ(Explain(error, {}).detail, "a\\x1b]0;x\\x07\\x0d\\nb\\xe2\\x80\\xae");
  EXPECT_EQ(Explain(error, {}).name, "n\\x1b[2J");
}

TEST(ExplainTest, WhatIsTooLongIsCut) {
  SLError error(200, std::string(511, 'x'), "client_v2", 1);
  error.name = std::string(3000, 'n');
  EXPECT_EQ(Explain(error, {}).detail, std::string(397, 'x') + "...");
  EXPECT_EQ(Explain(error, {}).name, std::string(252, 'n') + "...");
}

TEST(VisibleTest, PlainTextIsLeftAsItIs) {
  EXPECT_EQ(Visible("", 10), "");
  EXPECT_EQ(Visible("a ~ \\ %s", 10), "a ~ \\ %s");
}

TEST(VisibleTest, EachControlCharacterCanBeSeen) {
  EXPECT_EQ(Visible(std::string("\0\t\n\x7f\xff", 5), 40), "\\x00\\t\\n\\x7f\\xff");
}

TEST(VisibleTest, ItIsCutBetweenCharactersAndNeverLongerThanTheLimit) {
  EXPECT_EQ(Visible("1234567890", 10), "1234567890");
  EXPECT_EQ(Visible("12345678901", 10), "1234567...");
  EXPECT_EQ(Visible("12345\x01xyz", 10), "12345...");
  EXPECT_EQ(Visible("123\x01xyz", 10), "123\\x01xyz");
}

}  // namespace
}  // namespace kova
