#include "lifecycle/renewal_adviser.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ctime>

#include "host_files.h"
#include "lifecycle/renewal_history.h"
#include "scripted_ca.h"
#include "syslog_capture.h"

namespace kova::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kDirectory[] = "GET /directory";
constexpr char kQuestion[] = "GET /renewal-info/key.1";
constexpr std::int64_t kDay = 86400;

class RenewalAdviserTest : public testing::Test {
 protected:
  RenewalAdviserTest() {
    ResetHost();
    settings_.cron_period = "daily";
    Give(10 * kDay, 20 * kDay);
  }

  // A window that begins and ends so many seconds from now.
  void Give(std::int64_t start, std::int64_t end) {
    const std::int64_t now = std::time(nullptr);
    ca_.GiveRenewalInfo(
        HttpReply::Json(200, ScriptedCa::Window(TimeText(now + start), TimeText(now + end))));
  }

  // What one run of its own is told.
  bool Advises(const std::string& identifier = "key.1", const std::string& id = "id") {
    return RenewalAdviser(settings_).Advises(id, ca_.DirectoryUrl(), identifier);
  }

  ScriptedCa ca_;
  SyslogCapture syslog_;
  RenewalSettings settings_;
};

TEST_F(RenewalAdviserTest, AdvisesWhatTheCaAdvises) {
  EXPECT_FALSE(Advises("key.1"));
  Give(-20, -10);
  EXPECT_TRUE(Advises("key.2"));
  Give(kDay - 600, kDay - 300);
  EXPECT_TRUE(Advises("key.3"));
  Give(kDay + 300, kDay + 600);
  EXPECT_FALSE(Advises("key.4"));
  EXPECT_THAT(syslog_.Texts(), IsEmpty());
}

TEST_F(RenewalAdviserTest, AsksOnceAndKeepsTheAnswer) {
  for (int run = 0; run < 3; ++run) EXPECT_FALSE(Advises());
  EXPECT_THAT(ca_.Routes(), ElementsAre(kDirectory, kQuestion));
  const std::optional<RenewalAdvice> advice = ReadRenewalHistory("id").advice;
  ASSERT_TRUE(advice);
  EXPECT_EQ(advice->certificate, "key.1");
  EXPECT_TRUE(advice->window);
  EXPECT_NEAR(advice->ask_again, std::time(nullptr) + 6 * 3600, 60);
}

TEST_F(RenewalAdviserTest, AsksAnewAboutAnotherCertificate) {
  EXPECT_FALSE(Advises("key.1"));
  EXPECT_FALSE(Advises("key.2"));
  EXPECT_THAT(ca_.Routes(),
              ElementsAre(kDirectory, kQuestion, kDirectory, "GET /renewal-info/key.2"));
}

TEST_F(RenewalAdviserTest, LooksAtADirectoryOnceInARun) {
  RenewalAdviser adviser(settings_);
  EXPECT_FALSE(adviser.Advises("a", ca_.DirectoryUrl(), "key.1"));
  EXPECT_FALSE(adviser.Advises("b", ca_.DirectoryUrl(), "key.1"));
  EXPECT_FALSE(adviser.Advises("c", ca_.DirectoryUrl() + "?other", "key.1"));
  EXPECT_THAT(ca_.Routes(), ElementsAre(kDirectory, kQuestion, kQuestion, kDirectory, kQuestion));
}

TEST_F(RenewalAdviserTest, LeavesTheRestOfTheHistoryAlone) {
  RenewalHistory history;
  NoteFailure(history, SLError(102, "why", "client_v2", 1), 1'800'000'000);
  WriteRenewalHistory("id", history);
  // What another process writes while the CA is asked stays as well.
  ca_.Before(kQuestion, [&history] {
    NoteFailure(history, SLError(104, "later", "client_v2", 1), 1'800'000'005);
    WriteRenewalHistory("id", history);
  });
  EXPECT_FALSE(Advises());
  const RenewalHistory after = ReadRenewalHistory("id");
  EXPECT_EQ(after.failures, 2);
  EXPECT_EQ(after.message, "later");
  EXPECT_TRUE(after.advice);
}

TEST_F(RenewalAdviserTest, TellsAProblemOnOneLineAndAdvisesNothing) {
  ca_.GiveRenewalInfo(HttpReply::Text(404, ""));
  EXPECT_FALSE(Advises());
  EXPECT_THAT(
      syslog_.Texts(),
      ElementsAre("kova-letsencrypt:# No renewal information for [id]: the CA answered 404."));
  EXPECT_FALSE(Advises());
  EXPECT_EQ(ca_.Count(kQuestion), 1U) << "the CA is left alone for six hours";
}

TEST_F(RenewalAdviserTest, KeepsNothingOfACaThatCannotBeReached) {
  ca_.Always(kQuestion, HttpReply::Drop());
  EXPECT_FALSE(Advises());
  EXPECT_FALSE(Exists(std::string(kHistoryFolder) + "/id.json"));
  EXPECT_THAT(
      syslog_.Texts(),
      ElementsAre("kova-letsencrypt:# No renewal information for [id]: Server is not reachable."));
}

TEST_F(RenewalAdviserTest, ActsOnWhatItCannotKeep) {
  WriteFile(kHistoryFolder, "in the way");
  Give(-20, -10);
  EXPECT_TRUE(Advises());
  EXPECT_EQ(syslog_.Texts().size(), 1U);
}

TEST_F(RenewalAdviserTest, TellsAnExplanationWhenItChanges) {
  const auto explain = [this](const std::string& url) {
    ca_.GiveRenewalInfo(
        HttpReply::Json(200,
                        R"({"suggestedWindow": {"start": "2098-01-01T00:00:00Z", "end": )"
                        R"("2099-01-01T00:00:00Z"}, "explanationURL": ")" +
                            url + "\"}",
                        {"Retry-After: 60"}));
    // Asked for anew, as after the pause.
    RenewalHistory history = ReadRenewalHistory("id");
    if (history.advice) history.advice->ask_again = 0;
    WriteRenewalHistory("id", history);
    syslog_.Clear();
    EXPECT_FALSE(Advises());
    return syslog_.Texts();
  };
  const std::string told = "kova-letsencrypt:# The CA explains when [id] is to be renewed: ";
  EXPECT_THAT(explain("https://a/"), ElementsAre(told + "https://a/"));
  EXPECT_THAT(explain("https://a/"), IsEmpty());
  EXPECT_THAT(explain("https://b/"), ElementsAre(told + "https://b/"));
  EXPECT_THAT(explain(""), IsEmpty());
  EXPECT_THAT(explain("https://b/"), ElementsAre(told + "https://b/"));
  EXPECT_EQ(ca_.Count(kQuestion), 5U);
}

}  // namespace
}  // namespace kova::test
