#include "platform/portmap.h"

#include <gmock/gmock.h>
#include <json/value.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <filesystem>

#include "fake_router.h"
#include "faults.h"
#include "host_files.h"
#include "platform/device.h"
#include "platform/error.h"
#include "platform/files.h"
#include "platform/hooks.h"
#include "scratch.h"
#include "syslog_capture.h"

namespace kova::platform {
namespace {

using std::chrono::seconds;
using std::chrono::steady_clock;
using test::Exists;
using test::FakeRouter;
using test::FaultScope;
using test::ModeOf;
using test::ReadFile;
using test::RouterMapping;
using test::RouterTraits;
using test::Scratch;
using test::SyslogCapture;
using test::WriteFile;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

constexpr char kSet[] = "Letsencrypt";
constexpr char kHost[] = "127.0.0.1";  // this host, as the router sees it
constexpr std::array<KOVA_PORTMAP_RULE, 2> kRules = {{{80, 0, 80}, {443, 0, 443}}};
constexpr char kBothRules[] = R"({
  "Letsencrypt" : 
  [
    {
      "device_port" : 80,
      "router_port" : 80
    },
    {
      "device_port" : 443,
      "router_port" : 443
    }
  ]
}
)";

class PortmapTest : public testing::Test {
 protected:
  PortmapTest() { Clean(); }
  ~PortmapTest() override { Clean(); }

  static void Clean() {
    std::filesystem::remove_all(kHookFolder);
    std::filesystem::remove_all(kPortmapRecordPath);
    unlink(kDeviceRecordPath);
    std::filesystem::create_directories("/usr/kova/etc");
  }

  int Open() {
    results_ = {};
    return KLibKovaPortMapRulesSet(results_.data(), 2, kSet, kRules.data(), 2);
  }
  static int Close() { return KLibKovaPortMapRulesSet(nullptr, 0, kSet, nullptr, 0); }

  // "80 ok, 443 failed"
  std::string Results() const {
    std::string text;
    for (const KOVA_RULE_SET_RESULT& result : results_) {
      if (!text.empty()) text += ", ";
      text += std::to_string(result.port) + (result.success != 0 ? " ok" : " failed");
    }
    return text;
  }

  std::array<KOVA_RULE_SET_RESULT, 2> results_{};
};

RouterMapping Own(const std::string& port, const std::string& lease = "3600") {
  return {port, kHost, port, kSet, lease};
}

// ---- the router, over UPnP

class PortmapRouterTest : public PortmapTest {
 protected:
  void Start(const RouterTraits& traits = {}) {
    router_.SetTraits(traits);
    ASSERT_EQ(KLibKovaPortMapRouterDetect(), 0);
  }

  FakeRouter router_;
};

// The first of them all: nothing has been searched for in this process.
TEST_F(PortmapRouterTest, DetectionIsNotNeededFirst) {
  EXPECT_EQ(Open(), 0);
  EXPECT_EQ(Results(), "80 ok, 443 ok");
}

TEST_F(PortmapRouterTest, AConnectedGatewayIsFoundInTime) {
  const auto start = steady_clock::now();
  EXPECT_EQ(KLibKovaPortMapRouterDetect(), 0);
  EXPECT_LT(steady_clock::now() - start, std::chrono::milliseconds(2500));
}

TEST_F(PortmapRouterTest, ALostSearchIsMadeUpFor) {
  RouterTraits traits;
  traits.deaf_to_searches = 1;
  router_.SetTraits(traits);
  EXPECT_EQ(KLibKovaPortMapRouterDetect(), 0);
}

TEST_F(PortmapRouterTest, WithoutAnAnswerDetectionFailsAfterTwoSeconds) {
  RouterTraits traits;
  traits.deaf_to_searches = 1000;
  router_.SetTraits(traits);
  testing::internal::CaptureStderr();
  const auto start = steady_clock::now();
  EXPECT_NE(KLibKovaPortMapRouterDetect(), 0);
  const auto waited = steady_clock::now() - start;
  EXPECT_GE(waited, std::chrono::milliseconds(1500));
  EXPECT_LT(waited, std::chrono::milliseconds(2500));
  EXPECT_EQ(KLIBCErrGet(), ENODEV);
  // The search is not repeated for what follows in vain.
  EXPECT_LT(Open(), 0);
  EXPECT_LT(Close(), 0);
  EXPECT_LT(steady_clock::now() - start, std::chrono::milliseconds(2700));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(PortmapRouterTest, AGatewayWithoutConnectionIsNone) {
  RouterTraits traits;
  traits.status = "Disconnected";
  router_.SetTraits(traits);
  EXPECT_NE(KLibKovaPortMapRouterDetect(), 0);
  traits = {};
  traits.external_address = "192.168.7.1";  // another router stands in front of it
  router_.SetTraits(traits);
  EXPECT_NE(KLibKovaPortMapRouterDetect(), 0);
}

TEST_F(PortmapRouterTest, NoRouterMeansNoSearch) {
  WriteFile(kDeviceRecordPath, R"({"router": "none"})", 0600);
  const auto start = steady_clock::now();
  EXPECT_NE(KLibKovaPortMapRouterDetect(), 0);
  EXPECT_LT(Open(), 0);
  EXPECT_LT(Close(), 0);
  EXPECT_LT(steady_clock::now() - start, std::chrono::milliseconds(500));
  EXPECT_EQ(router_.Searches(), 0);
}

TEST_F(PortmapRouterTest, OneMappingPerRuleIsMadeWithALeaseOfAnHour) {
  Start();
  EXPECT_EQ(Open(), 0);
  EXPECT_EQ(Results(), "80 ok, 443 ok");
  EXPECT_THAT(router_.Mappings(), ElementsAre(Own("80"), Own("443")));
  EXPECT_EQ(Close(), 0);
  EXPECT_THAT(router_.Mappings(), IsEmpty());
  EXPECT_THAT(router_.TakeChanges(),
              ElementsAre("add 80 3600", "add 443 3600", "delete 80", "delete 443"));
}

TEST_F(PortmapRouterTest, ThePortsOfARuleMayDiffer) {
  Start();
  const KOVA_PORTMAP_RULE rule{8080, 0, 80};
  KOVA_RULE_SET_RESULT result{};
  EXPECT_EQ(KLibKovaPortMapRulesSet(&result, 1, "Web", &rule, 1), 0);
  EXPECT_EQ(result.port, 8080);
  EXPECT_NE(result.success, 0);
  EXPECT_THAT(router_.Mappings(), ElementsAre(RouterMapping{"8080", kHost, "80", "Web", "3600"}));
}

TEST_F(PortmapRouterTest, ARouterThatKnowsNoLeasesGetsPermanentMappings) {
  RouterTraits traits;
  traits.permanent_only = true;
  Start(traits);
  EXPECT_EQ(Open(), 0);
  EXPECT_EQ(Results(), "80 ok, 443 ok");
  EXPECT_THAT(router_.Mappings(), ElementsAre(Own("80", "0"), Own("443", "0")));
  EXPECT_THAT(router_.TakeChanges(),
              ElementsAre("add 80 3600", "add 80 0", "add 443 3600", "add 443 0"));
}

TEST_F(PortmapRouterTest, ARefusedRuleShowsInItsResultAlone) {
  RouterTraits traits;
  traits.refused = {"443"};
  Start(traits);
  EXPECT_EQ(Open(), 0);
  EXPECT_EQ(Results(), "80 ok, 443 failed");
  EXPECT_THAT(router_.Mappings(), ElementsAre(Own("80")));
  traits.refused = {"80"};
  router_.SetTraits(traits);
  EXPECT_EQ(Open(), 0);
  EXPECT_EQ(Results(), "80 failed, 443 ok");
}

TEST_F(PortmapRouterTest, TheEarlierMappingsOfTheSetAreRemovedFirst) {
  Start();
  router_.SetMappings({Own("8443"), Own("80", "12")});
  EXPECT_EQ(Open(), 0);
  EXPECT_THAT(router_.TakeChanges(),
              ElementsAre("delete 8443", "delete 80", "add 80 3600", "add 443 3600"));
  EXPECT_THAT(router_.Mappings(), ElementsAre(Own("80"), Own("443")));
}

TEST_F(PortmapRouterTest, APortOfAnotherHostIsLeftAloneAndRefused) {
  Start();
  for (const bool overwrites : {true, false}) {
    RouterTraits traits;
    traits.overwrites = overwrites;
    router_.SetTraits(traits);
    const RouterMapping theirs{"80", "127.0.0.9", "80", kSet, "0"};
    router_.SetMappings({theirs});
    EXPECT_EQ(Open(), 0);
    EXPECT_EQ(Results(), "80 failed, 443 ok");
    EXPECT_THAT(router_.Mappings(), ElementsAre(theirs, Own("443")));
    EXPECT_EQ(Close(), 0);
    EXPECT_THAT(router_.Mappings(), ElementsAre(theirs));
  }
}

TEST_F(PortmapRouterTest, APortThatTheUserForwardsHereIsOpenAlreadyAndStaysSo) {
  Start();
  const RouterMapping users{"80", kHost, "80", "my web server", "0"};
  router_.SetMappings({users});
  EXPECT_EQ(Open(), 0);
  EXPECT_EQ(Results(), "80 ok, 443 ok");
  EXPECT_EQ(Close(), 0);
  EXPECT_THAT(router_.Mappings(), ElementsAre(users));
}

TEST_F(PortmapRouterTest, APortThatTheUserForwardsElsewhereOnThisHostIsRefused) {
  Start();
  RouterMapping users{"80", kHost, "8080", "my web server", "0"};
  router_.SetMappings({users});
  EXPECT_EQ(Open(), 0);
  EXPECT_EQ(Results(), "80 failed, 443 ok");
  users.internal_port = "80";
  users.enabled = "0";
  router_.SetMappings({users});
  EXPECT_EQ(Open(), 0);
  EXPECT_EQ(Results(), "80 failed, 443 ok");
  EXPECT_THAT(router_.Mappings(), ElementsAre(users, Own("443")));
}

TEST_F(PortmapRouterTest, RemovingTakesOnlyThisHostsMappingsOfTheSet) {
  Start();
  const RouterMapping other_set{"8080", kHost, "80", "Letsencrypt2"};
  const RouterMapping other_host{"8081", "127.0.0.9", "80", kSet};
  RouterMapping datagrams{"53", kHost, "53", "dns"};
  datagrams.protocol = "UDP";
  router_.SetMappings({Own("80"), other_set, Own("443"), other_host, datagrams, Own("8443")});
  EXPECT_EQ(Close(), 0);
  EXPECT_THAT(router_.TakeChanges(), ElementsAre("delete 80", "delete 443", "delete 8443"));
  EXPECT_THAT(router_.Mappings(), ElementsAre(other_set, other_host, datagrams));
}

TEST_F(PortmapRouterTest, EveryWayToEndTheListIsUnderstood) {
  Start();
  for (const int error : {713, 714, 402, 501, 0}) {
    RouterTraits traits;
    traits.end_of_list = error;
    router_.SetTraits(traits);
    router_.SetMappings({Own("80"), Own("443")});
    EXPECT_EQ(Close(), 0) << error;
    EXPECT_THAT(router_.Mappings(), IsEmpty()) << error;
  }
}

TEST_F(PortmapRouterTest, AListWithoutEndIsLeft) {
  RouterTraits traits;
  traits.endless_list = true;
  Start(traits);
  router_.SetMappings({{"8080", kHost, "80", "other"}});
  EXPECT_EQ(Close(), 0);
  EXPECT_EQ(router_.ListRequests(), 1024);
}

TEST_F(PortmapRouterTest, ARouterThatListsNothingIsAskedForThePortsOfTheRecord) {
  Start();
  const RouterMapping theirs{"443", "127.0.0.9", "443", kSet, "0"};
  for (const int error : {401, 606}) {
    RouterTraits traits;
    traits.refuses_to_list = error;
    router_.SetTraits(traits);
    EXPECT_EQ(Open(), 0) << error;
    EXPECT_EQ(Close(), 0) << error;
    EXPECT_THAT(router_.Mappings(), IsEmpty()) << error;
    EXPECT_EQ(Open(), 0) << error;
    router_.SetMappings({Own("80"), theirs});
    EXPECT_EQ(Close(), 0) << error;
    EXPECT_THAT(router_.Mappings(), ElementsAre(theirs)) << error;
    router_.SetMappings({});
  }
}

TEST_F(PortmapRouterTest, ARouterThatListsNothingHasTheOldRulesReplaced) {
  RouterTraits traits;
  traits.refuses_to_list = 606;
  Start(traits);
  router_.SetMappings({Own("80", "12")});
  EXPECT_EQ(Open(), 0);
  EXPECT_THAT(router_.TakeChanges(), ElementsAre("delete 80", "add 80 3600", "add 443 3600"));
}

TEST_F(PortmapRouterTest, ARecordThatMakesNoSenseStandsInNobodysWay) {
  Start();
  for (const char* record : {"[]", "{\"Letsencrypt\": 7}", "{\"Letsencrypt\": [7, {}, []]}",
                             "{\"Letsencrypt\": [{\"router_port\": \"80\"}]}",
                             "{\"Letsencrypt\": [{\"router_port\": 80.5}]}"}) {
    WriteFile(kPortmapRecordPath, record);
    router_.SetMappings({Own("80")});
    EXPECT_EQ(Close(), 0) << record;
    EXPECT_THAT(router_.Mappings(), IsEmpty()) << record;
  }
}

TEST_F(PortmapRouterTest, ARouterThatKeepsTheMappingsFailsTheRemoval) {
  RouterTraits traits;
  traits.keeps_mappings = true;
  Start(traits);
  EXPECT_EQ(Open(), 0);
  EXPECT_LT(Close(), 0);
  EXPECT_EQ(KLIBCErrGet(), EHOSTUNREACH);
  EXPECT_EQ(ReadFile(kPortmapRecordPath), kBothRules);  // for they are still open
}

TEST_F(PortmapRouterTest, AMappingThatEndsBetweenListingAndDeletingIsGoneAllTheSame) {
  RouterTraits traits;
  traits.ends_what_it_listed = true;
  Start(traits);
  EXPECT_EQ(Open(), 0);
  EXPECT_THAT(router_.Mappings(), ElementsAre(Own("80"), Own("443")));
  EXPECT_EQ(Close(), 0);
  EXPECT_THAT(router_.Mappings(), IsEmpty());
  EXPECT_THAT(router_.TakeChanges(),
              ElementsAre("add 80 3600", "add 443 3600", "delete 80", "delete 443"));
  EXPECT_EQ(ReadFile(kPortmapRecordPath), "{}\n");
}

TEST_F(PortmapRouterTest, ARouterThatWasRestartedIsFoundAgain) {
  Start();
  EXPECT_EQ(Open(), 0);
  router_.Restart();
  EXPECT_EQ(Close(), 0);
  EXPECT_THAT(router_.Mappings(), IsEmpty());
}

TEST_F(PortmapRouterTest, ARouterThatIsGoneFailsTheCall) {
  Start();
  EXPECT_EQ(Open(), 0);
  router_.Vanish();
  testing::internal::CaptureStderr();
  EXPECT_LT(Close(), 0);
  EXPECT_LT(Open(), 0);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(ReadFile(kPortmapRecordPath), kBothRules);
}

TEST_F(PortmapRouterTest, TheRecordFollowsTheRouter) {
  WriteFile(kPortmapRecordPath, R"({"Web": [{"router_port": 8080, "device_port": 80}]})");
  RouterTraits traits;
  traits.refused = {"443"};
  Start(traits);
  EXPECT_EQ(Open(), 0);
  Json::Value record;
  ASSERT_TRUE(ReadJsonObject(kPortmapRecordPath, record));
  EXPECT_THAT(record.getMemberNames(), UnorderedElementsAre("Letsencrypt", "Web"));
  EXPECT_EQ(record["Letsencrypt"].size(), 2U);
  EXPECT_EQ(Close(), 0);
  ASSERT_TRUE(ReadJsonObject(kPortmapRecordPath, record));
  EXPECT_THAT(record.getMemberNames(), ElementsAre("Web"));
}

TEST_F(PortmapRouterTest, ARecordThatCannotBeWrittenIsToldAndThePortsAreOpen) {
  Start();
  WriteFile(kPortmapRecordPath, "[]");
  SyslogCapture log;
  EXPECT_EQ(Open(), 0);
  EXPECT_EQ(Results(), "80 ok, 443 ok");
  EXPECT_THAT(log.Texts(), ElementsAre("portmap:# Failed to record port map rules "
                                       "[/usr/kova/etc/portmap.json]: Invalid argument"));
  EXPECT_EQ(log.Messages().at(0).priority, LOG_ERR);
  EXPECT_EQ(ReadFile(kPortmapRecordPath), "[]");
}

TEST_F(PortmapRouterTest, OnlySoManyResultsAreReportedAsThereIsRoomFor) {
  Start();
  results_[1].port = 7;
  EXPECT_EQ(KLibKovaPortMapRulesSet(results_.data(), 1, kSet, kRules.data(), 2), 0);
  EXPECT_EQ(results_[0].port, 80);
  EXPECT_EQ(results_[1].port, 7);
}

TEST_F(PortmapTest, WhatCannotBeARuleSetIsRefused) {
  const KOVA_PORTMAP_RULE rule{80, 0, 80};
  for (const KOVA_PORTMAP_RULE& bad :
       {KOVA_PORTMAP_RULE{0, 0, 80}, {80, 0, 0}, {65536, 0, 80}, {80, 0, -1}}) {
    EXPECT_LT(KLibKovaPortMapRulesSet(results_.data(), 1, kSet, &bad, 1), 0);
    EXPECT_EQ(KLIBCErrGet(), EINVAL);
    EXPECT_LT(KLibKovaPortMapRulesConfigSet(kSet, &bad, 1), 0);
  }
  EXPECT_LT(KLibKovaPortMapRulesSet(results_.data(), 1, nullptr, &rule, 1), 0);
  EXPECT_LT(KLibKovaPortMapRulesSet(results_.data(), 1, "", &rule, 1), 0);
  EXPECT_LT(KLibKovaPortMapRulesSet(results_.data(), 1, kSet, nullptr, 1), 0);
  EXPECT_LT(KLibKovaPortMapRulesSet(results_.data(), 1, kSet, &rule, 0), 0);
  EXPECT_LT(KLibKovaPortMapRulesSet(nullptr, 1, kSet, &rule, 1), 0);
  EXPECT_EQ(KLIBCErrGet(), EINVAL);
  EXPECT_FALSE(Exists(kPortmapRecordPath));
}

// ---- hooks

class PortmapHookTest : public PortmapTest {
 protected:
  void PutHook(const std::string& name, const std::string& script) {
    WriteFile(std::string(kHookFolder) + "/" + name,
              "#!/bin/sh\necho \"$*\" >> " + calls_ + "\n" + script, 0755);
  }

  Scratch scratch_;
  std::string calls_ = scratch_.Path("calls");
};

TEST_F(PortmapHookTest, TheDetectionHooksStatusIsTheResult) {
  PutHook("router-detect", "exit 0\n");
  EXPECT_EQ(KLibKovaPortMapRouterDetect(), 0);
  PutHook("router-detect", "exit 42\n");
  EXPECT_EQ(KLibKovaPortMapRouterDetect(), 42);
  PutHook("router-detect", "kill -9 $$\n");
  EXPECT_LT(KLibKovaPortMapRouterDetect(), 0);
  EXPECT_EQ(ReadFile(calls_), "\n\n\n");
}

TEST_F(PortmapHookTest, TheRulesHookGetsTheSetAndAnswersPerRule) {
  PutHook("router-rules", "echo 80 ok\necho 443 failed\n");
  EXPECT_EQ(Open(), 0);
  EXPECT_EQ(Results(), "80 ok, 443 failed");
  EXPECT_EQ(Close(), 0);
  EXPECT_EQ(ReadFile(calls_), "Letsencrypt 80:80 443:443\nLetsencrypt\n");
}

TEST_F(PortmapHookTest, WhatTheHookDoesNotConfirmIsRefused) {
  const std::vector<std::pair<std::string, std::string>> answers = {
      {"", "80 failed, 443 failed"},
      {"80 ok", "80 ok, 443 failed"},
      {"443 ok\n80 ok", "80 failed, 443 failed"},
      {"80 okay\n443 ok", "80 failed, 443 ok"},
      {"80\n443 ok", "80 failed, 443 ok"},
      {"80 ok\n443 ok\n8080 ok\nnoise", "80 ok, 443 ok"}};
  for (const auto& [answer, results] : answers) {
    PutHook("router-rules", "cat <<END\n" + answer + "\nEND\n");
    EXPECT_EQ(Open(), 0) << answer;
    EXPECT_EQ(Results(), results) << answer;
  }
}

TEST_F(PortmapHookTest, AFailingHookFailsTheCallAndChangesNothing) {
  PutHook("router-rules", "echo 80 ok\necho 443 ok\nexit 3\n");
  EXPECT_LT(Open(), 0);
  EXPECT_EQ(Results(), "0 failed, 0 failed");
  EXPECT_FALSE(Exists(kPortmapRecordPath));
  WriteFile(kPortmapRecordPath, kBothRules);
  EXPECT_LT(Close(), 0);
  EXPECT_EQ(ReadFile(kPortmapRecordPath), kBothRules);
}

TEST_F(PortmapHookTest, TheRecordFollowsTheHookAsWell) {
  PutHook("router-rules", "echo 80 ok\necho 443 ok\n");
  EXPECT_EQ(Open(), 0);
  EXPECT_EQ(ReadFile(kPortmapRecordPath), kBothRules);
  EXPECT_EQ(Close(), 0);
  EXPECT_EQ(ReadFile(kPortmapRecordPath), "{}\n");
}

// ---- the record

class PortmapRecordTest : public PortmapTest {
 protected:
  static int Store() { return KLibKovaPortMapRulesConfigSet(kSet, kRules.data(), 2); }
  static int Drop() { return KLibKovaPortMapRulesConfigSet(kSet, nullptr, 0); }
};

TEST_F(PortmapRecordTest, ASetIsAddedReplacedAndDropped) {
  EXPECT_EQ(Store(), 0);
  EXPECT_EQ(ReadFile(kPortmapRecordPath), kBothRules);
  EXPECT_EQ(ModeOf(kPortmapRecordPath), 0644U);
  const KOVA_PORTMAP_RULE rule{8080, 0, 80};
  EXPECT_EQ(KLibKovaPortMapRulesConfigSet(kSet, &rule, 1), 0);
  Json::Value record;
  ASSERT_TRUE(ReadJsonObject(kPortmapRecordPath, record));
  ASSERT_EQ(record[kSet].size(), 1U);
  EXPECT_EQ(record[kSet][0]["router_port"].asInt(), 8080);
  EXPECT_EQ(record[kSet][0]["device_port"].asInt(), 80);
  EXPECT_EQ(Drop(), 0);
  EXPECT_EQ(ReadFile(kPortmapRecordPath), "{}\n");
}

TEST_F(PortmapRecordTest, OtherSetsAreKeptAsTheyAre) {
  WriteFile(kPortmapRecordPath, R"({"Web": {"unknown": [1, "two"]}, "Letsencrypt": []})");
  EXPECT_EQ(Store(), 0);
  EXPECT_EQ(Drop(), 0);
  Json::Value record;
  ASSERT_TRUE(ReadJsonObject(kPortmapRecordPath, record));
  EXPECT_THAT(record.getMemberNames(), ElementsAre("Web"));
  EXPECT_EQ(record["Web"]["unknown"][1].asString(), "two");
}

TEST_F(PortmapRecordTest, DroppingWhatIsNotThereWritesNothing) {
  EXPECT_EQ(Drop(), 0);
  EXPECT_FALSE(Exists(kPortmapRecordPath));
  WriteFile(kPortmapRecordPath, "{\"Web\":[]}");
  EXPECT_EQ(Drop(), 0);
  EXPECT_EQ(ReadFile(kPortmapRecordPath), "{\"Web\":[]}");
}

TEST_F(PortmapRecordTest, ABlankFileIsAnEmptyRecord) {
  WriteFile(kPortmapRecordPath, " \n");
  EXPECT_EQ(Store(), 0);
  EXPECT_EQ(ReadFile(kPortmapRecordPath), kBothRules);
}

TEST_F(PortmapRecordTest, WhatIsNoRecordIsLeftUntouched) {
  for (const char* content : {"{\"Letsencrypt\":", "[]", "null", "7"}) {
    WriteFile(kPortmapRecordPath, content);
    EXPECT_LT(Store(), 0) << content;
    EXPECT_EQ(KLIBCErrGet(), EINVAL);
    EXPECT_LT(Drop(), 0) << content;
    EXPECT_EQ(ReadFile(kPortmapRecordPath), content);
  }
}

TEST_F(PortmapRecordTest, AFailedWriteLeavesTheOldRecord) {
  ASSERT_EQ(Store(), 0);
  FaultScope scope;
  scope.faults.failing = "write";
  scope.faults.error = ENOSPC;
  EXPECT_LT(Drop(), 0);
  EXPECT_EQ(KLIBCErrGet(), ENOSPC);
  EXPECT_EQ(ReadFile(kPortmapRecordPath), kBothRules);
}

TEST_F(PortmapRecordTest, EditsAtTheSameTimeAllCount) {
  constexpr int kEditors = 8;
  std::vector<std::thread> editors;
  for (int i = 0; i < kEditors; ++i) {
    editors.emplace_back([i] {
      const KOVA_PORTMAP_RULE rule{1000 + i, 0, 80};
      EXPECT_EQ(KLibKovaPortMapRulesConfigSet(("Set" + std::to_string(i)).c_str(), &rule, 1), 0);
    });
  }
  for (std::thread& editor : editors) editor.join();
  Json::Value record;
  ASSERT_TRUE(ReadJsonObject(kPortmapRecordPath, record));
  EXPECT_EQ(record.size(), static_cast<unsigned>(kEditors));
}

}  // namespace
}  // namespace kova::platform
