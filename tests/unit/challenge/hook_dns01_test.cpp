#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <memory>

#include "challenge_fixture.h"

namespace kova::test {
namespace {

constexpr char kCalls[] = "/run/dns-txt.calls";
constexpr char kWork[] = "echo \"$@\" >> /run/dns-txt.calls\n";  // tells what it was asked
constexpr char kForeign[] = "a.example";

class HookDns01 : public DdnsTest {
 protected:
  HookDns01() { unlink(kCalls); }

  static std::string Call(const std::string& action, const std::string& domain = kForeign) {
    return action + " _acme-challenge." + domain + " " + Txt();
  }

  static bool Run(const std::string& domain = kForeign) {
    HookDns01Challenge challenge;
    challenge.Set(domain, "token", kKeyAuthorization);
    return challenge.setup();
  }

  // What the factory makes for that name: the hook's, or the vendor's.
  bool IsHooks(const std::string& type, const std::string& domain) {
    const std::shared_ptr<LeChallenge> challenge = ChallengeFactory(type, domain, http_);
    challenge->Set(domain, "token", kKeyAuthorization);
    unlink(kCalls);
    challenge->setup();
    return Exists(kCalls);
  }
};

TEST_F(HookDns01, AddsTheRecordAndRemovesItAtTheEnd) {
  WriteHook("dns-txt", kWork);
  {
    HookDns01Challenge challenge;
    challenge.Set(kForeign, "token", kKeyAuthorization);
    EXPECT_EQ(challenge.type(), "dns-01");
    EXPECT_TRUE(challenge.setup());
    EXPECT_THAT(ReadLines(kCalls), ElementsAre(Call("add")));
  }
  EXPECT_THAT(ReadLines(kCalls), ElementsAre(Call("add"), Call("remove")));
  EXPECT_THAT(syslog_.Texts(), IsEmpty());
  EXPECT_THAT(Queries(), IsEmpty());
}

TEST_F(HookDns01, IsRemovedByTheTeardownItselfAndOnlyOnce) {
  WriteHook("dns-txt", kWork);
  HookDns01Challenge challenge;
  challenge.teardown();
  EXPECT_FALSE(Exists(kCalls));
  challenge.Set(kForeign, "token", kKeyAuthorization);
  ASSERT_TRUE(challenge.setup());
  challenge.teardown();
  challenge.teardown();
  EXPECT_THAT(ReadLines(kCalls), ElementsAre(Call("add"), Call("remove")));
}

TEST_F(HookDns01, AHookThatFailsToAddIsAskedToRemoveWhatItMayHaveDone) {
  WriteHook("dns-txt", std::string(kWork) + "[ $1 = remove ]");
  OutputCapture output(1);
  EXPECT_FALSE(Run());
  EXPECT_THAT(ReadLines(kCalls), ElementsAre(Call("add"), Call("remove")));
  EXPECT_THAT(output.Debug(),
              ElementsAre("Setup dns-txt: TXT [_acme-challenge.a.example][" + Txt() + "]",
                          "Failed to setup challenge by dns-txt with [1]"));
  EXPECT_THAT(syslog_.Texts(), IsEmpty());
}

TEST_F(HookDns01, AHookThatFailsToRemoveIsOneLineInTheLog) {
  WriteHook("dns-txt", "[ $1 = add ] || exit 3");
  EXPECT_TRUE(Run());
  EXPECT_THAT(syslog_.Texts(), ElementsAre("challenge:# The hook dns-txt failed to remove "
                                           "[_acme-challenge.a.example][" +
                                           Txt() + "]. [3]"));
  EXPECT_EQ(syslog_.Messages()[0].priority, LOG_ERR);
}

TEST_F(HookDns01, WhatItPrintsIsNobodysBusiness) {
  WriteHook("dns-txt", std::string(kWork) + "echo '{\"error\": 1}'; head -c 3000 /dev/urandom");
  OutputCapture output(0);
  EXPECT_TRUE(Run());
  EXPECT_EQ(output.Text(), "");
  EXPECT_THAT(syslog_.Texts(), IsEmpty());
}

TEST_F(HookDns01, AHookThatIsKilledHasFailed) {
  WriteHook("dns-txt", std::string(kWork) + "[ $1 = remove ] || kill -9 $$");
  EXPECT_FALSE(Run());
  EXPECT_THAT(ReadLines(kCalls), ElementsAre(Call("add"), Call("remove")));
}

TEST_F(HookDns01, IsNotAskedAboutWhatIsNoHostName) {
  WriteHook("dns-txt", kWork);
  for (const std::string& domain :
       {std::string(), std::string("a b.example"), std::string("a.example\nserver 192.0.2.1"),
        std::string("$(reboot).example"), std::string("*.a.example"), std::string("a/b"),
        std::string("a\0b", 3), std::string("caf\xc3\xa9.example")}) {
    EXPECT_FALSE(Run(domain)) << domain;
  }
  EXPECT_FALSE(Exists(kCalls));
}

TEST_F(HookDns01, TwoValuesAtOneNameComeAndGoOnTheirOwn) {
  WriteHook("dns-txt", kWork);
  auto first = std::make_unique<HookDns01Challenge>();
  HookDns01Challenge second;
  first->Set(kForeign, "token", kKeyAuthorization);
  second.Set(kForeign, "other", "other.thumbprint");
  EXPECT_TRUE(first->setup());
  EXPECT_TRUE(second.setup());
  first.reset();
  const std::string other = "_acme-challenge.a.example " + DigestBase64Url("other.thumbprint");
  EXPECT_THAT(ReadLines(kCalls), ElementsAre(Call("add"), "add " + other, Call("remove")));
  second.teardown();
  EXPECT_EQ(ReadLines(kCalls).back(), "remove " + other);
}

TEST_F(HookDns01, ServesWhatTheVendorsServiceDoesNot) {
  WriteHook("dns-txt", kWork);
  HookDns01Challenge challenge;
  EXPECT_TRUE(challenge.isSupport(kForeign));
  EXPECT_FALSE(challenge.isSupport(kDomain));
  EXPECT_TRUE(IsHooks("dns-01", kForeign));
  EXPECT_FALSE(IsHooks("dns-01", kDomain));
  EXPECT_EQ(Queries().size(), 2U);
  EXPECT_FALSE(IsHooks("http-01", kForeign));
  WriteFile(kDeviceRecord, R"({"router": "none"})");
  EXPECT_TRUE(IsHooks("dns-01", kDomain));
  EXPECT_EQ(ErrorOf([this] { ChallengeFactory("DNS-01", kForeign, http_); }),
            "204 challenge: Unknown challenge type.");
}

TEST_F(HookDns01, WithoutAHookNothingIsAskedOrSaid) {
  WriteFile(kDeviceRecord, R"({"router": "none"})");  // the vendor's test would leave a line
  HookDns01Challenge challenge;
  EXPECT_FALSE(HookDns01Challenge::IsAvailable());
  EXPECT_FALSE(challenge.isSupport(kForeign));
  EXPECT_THAT(syslog_.Texts(), IsEmpty());
  EXPECT_FALSE(ChallengeFactory("dns-01", kForeign, http_)->isSupport(kForeign));
  EXPECT_THAT(syslog_.Texts(), ElementsAre("utils:# No kova DDNS."));
}

TEST_F(HookDns01, AHookThatOthersCanWriteIsIgnoredWithALine) {
  WriteHook("dns-txt", kWork);
  ASSERT_EQ(chmod((std::string(kHooks) + "/dns-txt").c_str(), 0757), 0);
  EXPECT_FALSE(IsHooks("dns-01", kForeign));
  EXPECT_THAT(syslog_.Texts(),
              ElementsAre("hooks:# Ignored hook [/usr/kova/libexec/platform.d/dns-txt]: "
                          "writable by group or others"));
}

}  // namespace
}  // namespace kova::test
