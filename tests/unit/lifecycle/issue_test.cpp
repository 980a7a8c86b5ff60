#include "lifecycle/issue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "acme/renewal_record.h"
#include "error_text.h"
#include "host_files.h"
#include "lifecycle/failure.h"
#include "output_capture.h"
#include "scripted_ca.h"
#include "sleep_counter.h"
#include "syslog_capture.h"

namespace kova::test {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

constexpr char kGaveUp[] = " kova-letsencrypt: Failed to new certificate.";
constexpr char kOrder[] = "POST /new-order";

class IssueLoop : public testing::Test {
 protected:
  IssueLoop() {
    ResetHost();
    WriteFile(kSettingsFile, "{}");
    settings_.usable = true;
    settings_.skip_dns01 = true;
    settings_.order_attempts = 3;
  }

  std::string Issue(const std::vector<std::string>& names = {"a.example"}) {
    return IssueWithAcmeV2({ca_.DirectoryUrl(), names, "me@b.example", ""}, settings_);
  }
  std::string ErrorOfIssue(const std::vector<std::string>& names = {"a.example"}) {
    return ErrorOf([&] { Issue(names); });
  }
  std::vector<std::string> FailedAttempts() {
    std::vector<std::string> lines;
    for (const std::string& text : syslog_.Texts()) {
      if (text.find("Failed to do new authorization") != std::string::npos) lines.push_back(text);
    }
    return lines;
  }

  ScriptedCa ca_;
  SyslogCapture syslog_;
  SleepCounter sleeps_;
  Settings settings_;
};

TEST_F(IssueLoop, EndsWithTheFolderOfTheFirstSuccess) {
  EXPECT_THAT(Issue(), StartsWith(std::string(kArchive) + "/"));
  EXPECT_EQ(ca_.Count(kOrder), 1U);
  EXPECT_THAT(FailedAttempts(), IsEmpty());
  EXPECT_THAT(sleeps_.Durations(), IsEmpty());
}

TEST_F(IssueLoop, ARefusedOrderIsTriedAsOftenAsTheSettingsSay) {
  ca_.Always(kOrder, ScriptedCa::Problem(429, "rateLimited", "too many"));
  EXPECT_EQ(ErrorOfIssue(), std::string("104") + kGaveUp);
  EXPECT_EQ(ca_.Count(kOrder), 3U);
  EXPECT_THAT(FailedAttempts(), SizeIs(3));
  EXPECT_THAT(FailedAttempts(), Each(HasSubstr(R"([{"error":104,"file":"client_v2","msg":)")));
  EXPECT_THAT(sleeps_.Durations(), ElementsAre(std::chrono::seconds(2), std::chrono::seconds(2)));
}

TEST_F(IssueLoop, WithoutABoundItIsTriedUntilItSucceedsAndWithoutAWait) {
  settings_.order_attempts = 0;
  ca_.Once(kOrder, ScriptedCa::Problem(429, "rateLimited", "too many"), 20);
  EXPECT_THAT(Issue(), StartsWith(kArchive));
  EXPECT_EQ(ca_.Count(kOrder), 21U);
  EXPECT_THAT(FailedAttempts(), SizeIs(20));
  EXPECT_THAT(sleeps_.Durations(), IsEmpty());
}

TEST_F(IssueLoop, TheCodeIsThatOfTheLastAttempt) {
  ca_.Once(kOrder, ScriptedCa::Problem(429, "rateLimited", "too many"), 2);
  ca_.Once(kOrder, HttpReply::Text(500, "{}"));
  EXPECT_EQ(ErrorOfIssue(), std::string("200") + kGaveUp);
}

TEST_F(IssueLoop, ATypeThatFailedIsUsedUpAndTheRestTried) {
  ca_.Once("POST /authz/0", HttpReply::Json(200, ca_.Authorization("a.example", "pending")));
  ca_.Once("POST /authz/0",
           HttpReply::Json(200, ca_.FailedAuthorization("a.example", "http-01", "unauthorized",
                                                        "wrong token")));
  EXPECT_EQ(ErrorOfIssue(), std::string("110") + kGaveUp);
  EXPECT_EQ(ca_.Count(kOrder), 1U);
  EXPECT_THAT(FailedAttempts(), SizeIs(1));
}

TEST_F(IssueLoop, WhatTheAuthoritySaidOfWhichNameIsKeptForPeople) {
  ca_.Always("POST /authz/1",
             HttpReply::Json(200, ca_.FailedAuthorization("b.example", "http-01", "unauthorized",
                                                          "wrong token")));
  const std::optional<SLError> failure = Capture([&] { Issue({"a.example", "b.example"}); });
  ASSERT_TRUE(failure.has_value());
  EXPECT_EQ(failure->message, "Failed to new certificate.");
  EXPECT_EQ(failure->name, "b.example");
  EXPECT_EQ(failure->cause, "wrong token");
}

TEST_F(IssueLoop, TheDetailOfARefusedOrderIsKeptForPeople) {
  ca_.Always(kOrder, ScriptedCa::Problem(400, "rejectedIdentifier", "not that name"));
  const std::optional<SLError> failure = Capture([&] { Issue(); });
  ASSERT_TRUE(failure.has_value());
  EXPECT_EQ(failure->name, "");
  EXPECT_EQ(failure->cause, "not that name");
}

TEST_F(IssueLoop, ANameOfASingleStarIsNoSLError) {
  EXPECT_THAT(ErrorOfIssue({"*"}), StartsWith("std: "));
  EXPECT_THAT(ca_.Routes(), IsEmpty());
}

TEST_F(IssueLoop, AWildcardOutsideTheVendorsZoneIsRefusedBeforeTheAuthorityIsAsked) {
  EXPECT_EQ(ErrorOfIssue({"a.example", "*.b.example"}),
            "108 kova-letsencrypt: *.b.example is not Kova ddns");
  EXPECT_THAT(ca_.Routes(), IsEmpty());
  EXPECT_THAT(syslog_.Texts(),
              testing::Contains("kova-letsencrypt:# Only Kova ddns suppport wildcard function"));
}

TEST_F(IssueLoop, AVersionThatIsNoneIsAFailureOfItsOwn) {
  const IssueOptions options{ca_.DirectoryUrl(), {"a.example"}, "me@b.example", ""};
  EXPECT_EQ(ErrorOf([&] { kova::Issue("3", options, settings_); }),
            "202 kova-letsencrypt: Incorrect version specify [3]");
  EXPECT_EQ(ErrorOf([&] { kova::Issue(std::string(2000, '9'), options, settings_); }).size(),
            std::string("202 kova-letsencrypt: ").size() + 1023);
  EXPECT_THAT(ca_.Routes(), IsEmpty());
}

class IssueOverAnOldSet : public IssueLoop {
 protected:
  IssueOverAnOldSet() {
    for (const char* name : kCertificateFiles) WriteFile(kOld + "/" + name, "old", 0400);
  }

  std::string ErrorOfIssue(bool staged, const std::string& version = "2") {
    settings_.staged_update = staged;
    settings_.order_attempts = 1;
    const IssueOptions options{ca_.DirectoryUrl(), {"a.example"}, "me@b.example", "AbC123"};
    return ErrorOf([&] { EXPECT_EQ(kova::Issue(version, options, settings_), kOld); });
  }
  // How many of the five files are the old ones.
  int OldFiles() const {
    int count = 0;
    for (const char* name : kCertificateFiles) {
      if (Exists(kOld + "/" + name) && ReadFile(kOld + "/" + name) == "old") ++count;
    }
    return count;
  }

  const std::string kOld = std::string(kArchive) + "/AbC123";
};

TEST_F(IssueOverAnOldSet, ReplacesItWholeAndLeavesNothingElse) {
  EXPECT_EQ(ErrorOfIssue(/*staged=*/true), "nothing");
  EXPECT_EQ(OldFiles(), 0);
  EXPECT_THAT(ListFolder(kArchive), ElementsAre("AbC123"));
  EXPECT_THAT(ListFolder(kOld), SizeIs(5));
}

TEST_F(IssueOverAnOldSet, KeepsItWhenTheChainIsOfOneCertificate) {
  ca_.Always("POST /certificate/1",
             HttpReply::Text(200, "-----BEGIN CERTIFICATE-----\nx\n-----END CERTIFICATE-----\n"));
  EXPECT_EQ(ErrorOfIssue(/*staged=*/true), std::string("202") + kGaveUp);
  EXPECT_EQ(OldFiles(), 5);
  EXPECT_THAT(ListFolder(kArchive), ElementsAre("AbC123"));
  EXPECT_EQ(ErrorOfIssue(/*staged=*/false), std::string("202") + kGaveUp);
  EXPECT_FALSE(Exists(kOld));
}

TEST_F(IssueOverAnOldSet, NeedsItsFolderBeforeTheAuthorityIsAsked) {
  std::filesystem::remove_all(kOld);
  for (const char* version : {"1", "2"}) {
    EXPECT_EQ(ErrorOfIssue(/*staged=*/true, version), "202 kova-letsencrypt: Failed to save pems");
  }
  EXPECT_THAT(ca_.Routes(), IsEmpty());
  EXPECT_EQ(ErrorOfIssue(/*staged=*/false), std::string("202") + kGaveUp);
  EXPECT_EQ(ca_.Count(kOrder), 1U);
}

class KeyTypeChoice : public testing::Test {
 protected:
  // "NAME", with " kept" when the record is to hold it.
  std::string Chosen(const std::optional<std::string>& chosen,
                     const std::optional<std::string>& of_the_settings) {
    Settings settings;
    settings.key_type = of_the_settings;
    IssueOptions options;
    ChooseKeyType(chosen, settings, options);
    return NameOf(options.key_type) + std::string(options.keeps_key_type ? " kept" : "");
  }

  SyslogCapture syslog_;
};

TEST_F(KeyTypeChoice, IsTheCertificatesOwnBeforeTheSettings) {
  EXPECT_EQ(Chosen(std::nullopt, std::nullopt), "rsa2048");
  EXPECT_EQ(Chosen(std::nullopt, "ec256"), "ec256");
  EXPECT_EQ(Chosen("rsa4096", "ec256"), "rsa4096 kept");
  EXPECT_EQ(Chosen("rsa2048", std::nullopt), "rsa2048 kept");
  EXPECT_THAT(syslog_.Texts(), IsEmpty());
}

TEST_F(KeyTypeChoice, ATextThatNamesNoneIsOneLineAndCountsAsNone) {
  EXPECT_EQ(Chosen(std::nullopt, "ec\n512"), "rsa2048");
  EXPECT_EQ(Chosen("", "ec384"), "ec384");
  EXPECT_THAT(syslog_.Texts(), ElementsAre("kova-letsencrypt:# Ignored key type [ec 512]",
                                           "kova-letsencrypt:# Ignored key type []"));
}

}  // namespace
}  // namespace kova::test
