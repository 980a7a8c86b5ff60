#include "lifecycle/renewal_history.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "base/json.h"
#include "host_files.h"
#include "syslog_capture.h"

namespace kova {
namespace {

constexpr std::int64_t kNow = 1'800'000'000;  // 2027-01-15T08:00:00Z
constexpr std::int64_t kHour = 3600;
const std::string kFile = std::string(kHistoryFolder) + "/id.json";

class RenewalHistoryTest : public testing::Test {
 protected:
  RenewalHistoryTest() { std::filesystem::remove_all(kHistoryFolder); }

  static RenewalHistory Failed(int times) {
    RenewalHistory history;
    for (int time = 0; time < times; ++time) {
      NoteFailure(history, SLError(102, "why", "client_v2", 1), kNow);
    }
    return history;
  }
};

TEST_F(RenewalHistoryTest, TimesAreWrittenAndReadBack) {
  EXPECT_EQ(TimeText(kNow), "2027-01-15T08:00:00Z");
  EXPECT_EQ(TimeOfText("2027-01-15T08:00:00Z"), kNow);
  for (const char* text : {"", "x", "2027-01-15", "2027-01-15T08:00:00Zx"}) {
    EXPECT_EQ(TimeOfText(text), 0) << text;
  }
}

TEST_F(RenewalHistoryTest, IsKeptFromOneRunToTheNext) {
  WriteRenewalHistory("id", Failed(2));
  EXPECT_EQ(test::ReadFile(kFile),
            "{\n   \"error\" : 102,\n   \"failing_since\" : \"2027-01-15T08:00:00Z\",\n"
            "   \"failures\" : 2,\n   \"file\" : \"client_v2\",\n"
            "   \"last_attempt\" : \"2027-01-15T08:00:00Z\",\n   \"last_success\" : \"\",\n"
            "   \"msg\" : \"why\"\n}\n");
  EXPECT_EQ(test::ModeOf(kFile), 0600U);
  EXPECT_EQ(test::ModeOf(kHistoryFolder), 0700U);
  const RenewalHistory history = ReadRenewalHistory("id");
  EXPECT_EQ(history.failures, 2);
  EXPECT_EQ(history.error, 102);
  EXPECT_EQ(history.message, "why");
  EXPECT_EQ(history.file, "client_v2");
  EXPECT_EQ(history.last_attempt, "2027-01-15T08:00:00Z");
}

TEST_F(RenewalHistoryTest, AFileThatCannotBeReadIsAsGoodAsNone) {
  for (const char* text : {"", "{", "[]", "null", R"({"failures": "9", "last_attempt": 5})",
                           R"({"failures": 99999999999, "msg": []})", R"({"failures": -3})"}) {
    test::WriteFile(kFile, text);
    const RenewalHistory history = ReadRenewalHistory("id");
    EXPECT_EQ(history.failures, 0) << text;
    EXPECT_EQ(history.last_attempt + history.message, "") << text;
    EXPECT_FALSE(IsWaiting(history, kNow)) << text;
  }
}

TEST_F(RenewalHistoryTest, TheFirstFailureOfARowIsKept) {
  RenewalHistory history = Failed(2);
  NoteFailure(history, SLError(102, "why", "client_v2", 1), kNow + kHour);
  EXPECT_EQ(history.failing_since, TimeText(kNow));
  EXPECT_EQ(history.last_attempt, TimeText(kNow + kHour));
  WriteRenewalHistory("id", history);
  EXPECT_EQ(ReadRenewalHistory("id").failing_since, TimeText(kNow));
  NoteSuccess(history, kNow + 2 * kHour);
  EXPECT_EQ(history.failing_since, "");
  NoteFailure(history, SLError(102, "why", "client_v2", 1), kNow + 3 * kHour);
  EXPECT_EQ(history.failing_since, TimeText(kNow + 3 * kHour));
}

TEST_F(RenewalHistoryTest, WithoutTheFirstFailureTheLastAttemptStandsForIt) {
  test::WriteFile(kFile, R"({"failures": 2, "last_attempt": "2027-01-01T00:00:00Z"})");
  RenewalHistory history = ReadRenewalHistory("id");
  NoteFailure(history, SLError(102, "why", "client_v2", 1), kNow);
  EXPECT_EQ(history.failing_since, "2027-01-01T00:00:00Z");
}

TEST_F(RenewalHistoryTest, FailuresAreCountedToABound) {
  test::WriteFile(kFile, R"({"failures": 2147483647})");
  RenewalHistory history = ReadRenewalHistory("id");
  NoteFailure(history, SLError(102, "why", "client_v2", 1), kNow);
  EXPECT_EQ(history.failures, 1'000'000);
}

TEST_F(RenewalHistoryTest, WhatCannotBeUsedIsOneLineInTheLog) {
  const auto told = [](const std::string& text) {
    test::SyslogCapture syslog;
    if (!text.empty()) test::WriteFile(kFile, text);
    TellUnusableHistory("id");
    return syslog.Texts();
  };
  EXPECT_TRUE(told("").empty()) << "there is none";
  EXPECT_TRUE(told("{}").empty());
  EXPECT_TRUE(told(JsonStyledText(ToJson(Failed(2)))).empty());
  for (const char* text : {"{", "[]", "null", "7", "\"x\""}) {
    EXPECT_EQ(told(text), std::vector<std::string>{"kova-letsencrypt:# [" + kFile +
                                                   "] is not used: it is no JSON object."})
        << text;
  }
  EXPECT_EQ(told(R"({"failures": "9", "last_attempt": 5, "msg": "m", "error": 1})"),
            std::vector<std::string>{"kova-letsencrypt:# [" + kFile +
                                     "] has members of another type, which are not used: "
                                     "last_attempt, failures"});
}

TEST_F(RenewalHistoryTest, ASuccessClearsTheFailures) {
  RenewalHistory history = Failed(5);
  NoteSuccess(history, kNow + 5);
  EXPECT_EQ(history.failures, 0);
  EXPECT_EQ(history.message, "");
  EXPECT_EQ(history.last_success, "2027-01-15T08:00:05Z");
  WriteRenewalHistory("id", history);
  EXPECT_EQ(test::ReadFile(kFile).find("msg"), std::string::npos);
}

TEST_F(RenewalHistoryTest, ThreeFailuresInARowMakeItWaitForTheNextDay) {
  EXPECT_FALSE(IsWaiting(Failed(2), kNow + 1));
  EXPECT_TRUE(IsWaiting(Failed(3), kNow));
  EXPECT_TRUE(IsWaiting(Failed(3), kNow + 22 * kHour));
  EXPECT_FALSE(IsWaiting(Failed(3), kNow + 24 * kHour - 60)) << "the next day's run comes by";
  EXPECT_FALSE(IsWaiting(Failed(3), kNow - 1)) << "the clock was put back";
}

TEST_F(RenewalHistoryTest, TheHostIsToldOnceADay) {
  RenewalHistory history = Failed(1);
  EXPECT_TRUE(IsToBeNotified(history, kNow));
  history.last_notice = TimeText(kNow);
  EXPECT_FALSE(IsToBeNotified(history, kNow + kHour));
  EXPECT_TRUE(IsToBeNotified(history, kNow + 24 * kHour));
  NoteSuccess(history, kNow + kHour);
  EXPECT_FALSE(IsToBeNotified(history, kNow + 2 * kHour)) << "a success in between changes nothing";
}

TEST_F(RenewalHistoryTest, WhatCannotBeWrittenIsLogged) {
  test::SyslogCapture syslog;
  test::WriteFile(kHistoryFolder, "in the way");
  WriteRenewalHistory("id", Failed(1));
  ASSERT_EQ(syslog.Texts().size(), 1U);
  EXPECT_EQ(syslog.Texts()[0], "kova-letsencrypt:# Failed to write the renewal history. [" + kFile +
                                   "][Not a directory]");
}

}  // namespace
}  // namespace kova
