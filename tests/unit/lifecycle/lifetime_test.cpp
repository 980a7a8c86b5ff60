#include "lifecycle/lifetime.h"

#include <gtest/gtest.h>

#include <iostream>

#include "syslog_capture.h"

namespace kova {
namespace {

constexpr std::int64_t kDay = 86400;

Lifetime Days(std::int64_t days) { return {0, days * kDay}; }

TEST(LifetimeTest, IsDueWhenLessThanAThirdIsLeft) {
  EXPECT_FALSE(IsDue(Days(90), 60 * kDay));
  EXPECT_TRUE(IsDue(Days(90), 60 * kDay + 1));
  EXPECT_FALSE(IsDue(Days(10), 10 * kDay * 2 / 3));
  EXPECT_TRUE(IsDue(Days(10), 10 * kDay * 2 / 3 + 1));
}

TEST(LifetimeTest, OfUnderTenDaysIsDueWhenLessThanHalfIsLeft) {
  EXPECT_FALSE(IsDue(Days(6), 3 * kDay));
  EXPECT_TRUE(IsDue(Days(6), 3 * kDay + 1));
  EXPECT_FALSE(IsDue({0, 10 * kDay - 2}, 5 * kDay - 1));
  EXPECT_TRUE(IsDue({0, 10 * kDay - 2}, 5 * kDay));
}

TEST(LifetimeTest, ThatIsOverIsDueAndNearlyOver) {
  EXPECT_TRUE(IsDue(Days(90), 91 * kDay));
  EXPECT_TRUE(IsNearlyOver(Days(90), 91 * kDay));
}

TEST(LifetimeTest, IsNearlyOverInItsLastTenth) {
  EXPECT_FALSE(IsNearlyOver(Days(90), 81 * kDay));
  EXPECT_TRUE(IsNearlyOver(Days(90), 81 * kDay + 1));
}

// DueFrom is the moment at which IsDue changes its answer.
void ExpectDueFrom(const Lifetime& lifetime, const DueRule& rule, std::int64_t moment) {
  EXPECT_EQ(DueFrom(lifetime, rule), moment);
  EXPECT_FALSE(IsDue(lifetime, rule, moment - 1));
  EXPECT_TRUE(IsDue(lifetime, rule, moment));
}

TEST(DueRuleTest, TellsTheFirstMomentAtWhichItIsDue) {
  ExpectDueFrom(Days(90), {true, std::nullopt}, 60 * kDay + 1);
  ExpectDueFrom(Days(6), {true, std::nullopt}, 3 * kDay + 1);
  ExpectDueFrom({7, 7 + 20 * kDay + 1}, {true, std::nullopt}, 7 + (40 * kDay + 1) / 3 + 1);
  ExpectDueFrom({7, 7 + 20 * kDay + 2}, {true, std::nullopt}, 7 + (40 * kDay + 4) / 3 + 1);
  ExpectDueFrom(Days(45), {false, 5}, 40 * kDay);
  ExpectDueFrom(Days(45), {true, 5}, 30 * kDay + 1);
  ExpectDueFrom(Days(45), {true, 20}, 25 * kDay);
}

TEST(DueRuleTest, DaysAloneCountWithoutTheLifetime) {
  RenewalSettings settings;
  EXPECT_FALSE(IsDue(Days(45), DueRule::Of(settings), 15 * kDay - 1));
  EXPECT_TRUE(IsDue(Days(45), DueRule::Of(settings), 15 * kDay)) << "30 days is the rule";
  settings.renew_before_expire_days = 5;
  EXPECT_FALSE(IsDue(Days(45), DueRule::Of(settings), 40 * kDay - 1));
  EXPECT_TRUE(IsDue(Days(45), DueRule::Of(settings), 40 * kDay));
}

TEST(DueRuleTest, DaysCountBesideTheLifetimeWhenTheyAreSet) {
  RenewalSettings settings;
  settings.renew_lifetime = true;
  EXPECT_FALSE(IsDue(Days(45), DueRule::Of(settings), 30 * kDay));
  EXPECT_TRUE(IsDue(Days(45), DueRule::Of(settings), 30 * kDay + 1));
  settings.renew_before_expire_days = 5;
  EXPECT_FALSE(IsDue(Days(45), DueRule::Of(settings), 30 * kDay));
  EXPECT_TRUE(IsDue(Days(45), DueRule::Of(settings), 30 * kDay + 1));
  settings.renew_before_expire_days = 20;
  EXPECT_FALSE(IsDue(Days(45), DueRule::Of(settings), 25 * kDay - 1));
  EXPECT_TRUE(IsDue(Days(45), DueRule::Of(settings), 25 * kDay));
}

TEST(LifetimeTest, OfWhatIsNoCertificateIsNone) {
  test::SyslogCapture syslog;
  EXPECT_FALSE(LifetimeOf(std::nullopt, "/run/a.pem").has_value());
  EXPECT_EQ(
      syslog.Texts(),
      (std::vector<std::string>{"kova-letsencrypt:# Failed to read the lifetime of /run/a.pem"}));
}

// A year of daily runs, none of which gets a certificate during an outage that begins on that day
// (before the first: there is none) and is three days long. An authority dates its certificates an
// hour back, as they do.
struct Year {
  int renewals = 0;
  std::int64_t shortest_use = 365 * kDay;  // between two renewals
  bool ended = false;                      // a certificate was past its end at some run
};

Year LiveThrough(std::int64_t lifetime_days, int outage_day) {
  Year year;
  const auto issued_at = [&](std::int64_t now) {
    return Lifetime{now - 3600, now - 3600 + lifetime_days * kDay};
  };
  std::int64_t obtained = 0;
  Lifetime current = issued_at(0);
  for (int day = 1; day <= 365; ++day) {
    const std::int64_t now = day * kDay;
    if (now >= current.end) year.ended = true;
    const bool outage = outage_day > 0 && day >= outage_day && day < outage_day + 3;
    if (outage || !IsDue(current, now)) continue;
    year.shortest_use = std::min(year.shortest_use, now - obtained);
    obtained = now;
    current = issued_at(now);
    ++year.renewals;
  }
  return year;
}

TEST(LifetimeYearTest, NoCertificateEndsAndNoneIsRenewedBeforeItsTime) {
  for (const std::int64_t days : {90, 45, 6}) {
    const Year year = LiveThrough(days, 0);
    const std::int64_t earliest = days >= 10 ? days * 2 / 3 : days / 2;
    EXPECT_FALSE(year.ended) << days;
    EXPECT_GE(year.shortest_use, (earliest * kDay) - 3600) << days;
    EXPECT_LE(year.renewals, 365 / earliest) << days;
    std::cout << days << " days: " << year.renewals << " renewals in a year, the shortest after "
              << year.shortest_use / kDay << " days\n";
  }
}

TEST(LifetimeYearTest, AnOutageOfThreeDaysWheneverItBeginsEndsNoneOfThatManyDays) {
  for (const std::int64_t days : {90, 45}) {
    for (int begin = 1; begin <= 362; ++begin) {
      EXPECT_FALSE(LiveThrough(days, begin).ended) << days << " days, outage on day " << begin;
    }
  }
}

// Half of six days is three: an outage that begins on the very day of a renewal outlasts it, by the
// hour that the certificate is dated back. One that begins on any other day does not.
TEST(LifetimeYearTest, SixDaysOutliveThreeUnlessThoseBeginWithTheRenewal) {
  int ended = 0;
  for (int begin = 4; begin <= 362; ++begin) {
    const bool on_a_renewal = begin % 3 == 0;
    EXPECT_EQ(LiveThrough(6, begin).ended, on_a_renewal) << begin;
    if (LiveThrough(6, begin).ended) ++ended;
  }
  std::cout << "6 days: " << ended << " of 359 beginnings of a three-day outage outlast one\n";
}

}  // namespace
}  // namespace kova
