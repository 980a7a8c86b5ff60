// Routers that are none: any host of the home network may answer the search.
#include "platform/router.h"

#include <gmock/gmock.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>

#include "fake_router.h"
#include "platform/device.h"
#include "scratch.h"

namespace kova::platform {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using test::FakeRouter;
using test::Manner;
using test::RouterTraits;
using testing::IsEmpty;

constexpr std::array<KOVA_PORTMAP_RULE, 2> kRules = {{{80, 0, 80}, {443, 0, 443}}};
constexpr size_t kSmall = 8U << 20;

size_t Resident() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<size_t>(usage.ru_maxrss) * 1024;
}

class RouterTest : public testing::Test {
 protected:
  RouterTest() { unlink(kDeviceRecordPath); }

  int Open(Router& router) { return router.Replace("Letsencrypt", kRules, results_); }

  FakeRouter fake_;
  std::array<KOVA_RULE_SET_RESULT, 2> results_{};
};

TEST_F(RouterTest, TheTimesAreTheContract) {
  const Router::Times times;
  EXPECT_EQ(times.search, seconds(5));
  EXPECT_EQ(times.rule_set, seconds(20));
}

TEST_F(RouterTest, ADescriptionThatDripsOrNeverEndsIsLeftInTime) {
  for (const Manner manner : {Manner::kDrips, Manner::kEndless, Manner::kSilent}) {
    RouterTraits traits;
    traits.description = manner;
    fake_.SetTraits(traits);
    Router router({.search = milliseconds(2500), .rule_set = milliseconds(2500)});
    const size_t before = Resident();
    const auto start = steady_clock::now();
    EXPECT_FALSE(router.Search());
    EXPECT_LT(steady_clock::now() - start, milliseconds(3500));
    EXPECT_LT(Resident() - before, kSmall);
    // And there is no router from then on.
    EXPECT_EQ(Open(router), kGatewayUnreachable);
    EXPECT_LT(steady_clock::now() - start, milliseconds(3500));
  }
}

TEST_F(RouterTest, AnEndlessAnswerToARuleIsLeftInTime) {
  for (const Manner manner : {Manner::kDrips, Manner::kEndless, Manner::kSilent}) {
    fake_.SetTraits({});
    Router router({.search = seconds(5), .rule_set = milliseconds(500)});
    ASSERT_TRUE(router.Search());
    RouterTraits traits;
    traits.answers = manner;
    fake_.SetTraits(traits);
    const size_t before = Resident();
    const auto start = steady_clock::now();
    EXPECT_EQ(Open(router), kGatewayUnreachable);
    EXPECT_EQ(router.Remove("Letsencrypt", {80, 443}), kGatewayUnreachable);
    EXPECT_LT(steady_clock::now() - start, milliseconds(1500));
    EXPECT_LT(Resident() - before, kSmall);
    EXPECT_EQ(results_[0].success, 0);
  }
}

TEST_F(RouterTest, ALargeDescriptionOfTheRightKindIsFollowed) {
  RouterTraits traits;
  traits.padding = 2 << 20;
  fake_.SetTraits(traits);
  Router router;
  EXPECT_TRUE(router.Search());
  EXPECT_EQ(Open(router), 0);
  EXPECT_EQ(router.Remove("Letsencrypt", {}), 0);
  EXPECT_THAT(fake_.Mappings(), IsEmpty());
}

}  // namespace
}  // namespace kova::platform
