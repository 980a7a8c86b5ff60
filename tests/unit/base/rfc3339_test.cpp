#include "base/rfc3339.h"

#include <gtest/gtest.h>

#include <cctype>
#include <cstdint>
#include <limits>
#include <string>

namespace kova {
namespace {

constexpr std::int64_t kNone = std::numeric_limits<std::int64_t>::min();

// Milliseconds since the epoch.
std::int64_t Of(std::string_view text) {
  const std::optional<Moment> moment = MomentOfText(text);
  return moment ? moment->time_since_epoch().count() : kNone;
}

TEST(MomentOfText, TakesUniversalTime) {
  EXPECT_EQ(Of("1970-01-01T00:00:00Z"), 0);
  EXPECT_EQ(Of("2027-01-15T08:00:00Z"), 1'800'000'000'000);
  EXPECT_EQ(Of("2027-01-15t08:00:00z"), 1'800'000'000'000);
  EXPECT_EQ(Of("1969-12-31T23:59:59Z"), -1000);
  EXPECT_EQ(Of("0000-01-01T00:00:00Z"), -62'167'219'200'000);
  EXPECT_EQ(Of("9999-12-31T23:59:59Z"), 253'402'300'799'000);
}

TEST(MomentOfText, TakesOffsets) {
  EXPECT_EQ(Of("2027-01-15T09:30:00+01:30"), 1'800'000'000'000);
  EXPECT_EQ(Of("2027-01-14T08:01:00-23:59"), 1'800'000'000'000);
  EXPECT_EQ(Of("2027-01-15T08:00:00+00:00"), 1'800'000'000'000);
  EXPECT_EQ(Of("2027-01-15T08:00:00-00:00"), 1'800'000'000'000);
}

TEST(MomentOfText, TakesFractionsOfASecond) {
  EXPECT_EQ(Of("1970-01-01T00:00:00.5Z"), 500);
  EXPECT_EQ(Of("1970-01-01T00:00:01.025Z"), 1025);
  EXPECT_EQ(Of("1970-01-01T00:00:00.123456789Z"), 123);
  EXPECT_EQ(Of("1970-01-01T01:00:00.0001+01:00"), 0);
  EXPECT_EQ(Of("1970-01-01T00:00:00." + std::string(5000, '9') + "Z"), 999);
}

TEST(MomentOfText, KnowsTheCalendar) {
  EXPECT_EQ(Of("2024-02-29T00:00:00Z"), 1'709'164'800'000);
  EXPECT_EQ(Of("2000-02-29T00:00:00Z"), 951'782'400'000);
  EXPECT_EQ(Of("2016-12-31T23:59:60Z"), Of("2017-01-01T00:00:00Z"));
  for (const char* text :
       {"2023-02-29T00:00:00Z", "1900-02-29T00:00:00Z", "2026-04-31T00:00:00Z",
        "2026-00-10T00:00:00Z", "2026-13-10T00:00:00Z", "2026-01-00T00:00:00Z",
        "2026-01-32T00:00:00Z", "2026-01-01T24:00:00Z", "2026-01-01T00:60:00Z",
        "2026-01-01T00:00:61Z", "2026-01-01T00:00:00+24:00", "2026-01-01T00:00:00+00:60"}) {
    EXPECT_EQ(Of(text), kNone) << text;
  }
}

TEST(MomentOfText, TakesNoOtherForm) {
  for (const char* text : {"",
                           "Z",
                           "soon",
                           "1800000000",
                           "2027-01-15",
                           "2027-01-15T08:00:00",
                           "2027-01-15T08:00Z",
                           "2027-01-15 08:00:00Z",
                           "2027-1-15T08:00:00Z",
                           "27-01-15T08:00:00Z",
                           "+2027-01-15T08:00:00Z",
                           "-027-01-15T08:00:00Z",
                           "2027-01-15T08:00:00ZZ",
                           "2027-01-15T08:00:00Z ",
                           " 2027-01-15T08:00:00Z",
                           "2027-01-15T08:00:00Z\n",
                           "2027-01-15T08:00:00.Z",
                           "2027-01-15T08:00:00,5Z",
                           "2027-01-15T08:00:00.5",
                           "2027-01-15T08:00:00.-5Z",
                           "2027-01-15T08:00:00+0100",
                           "2027-01-15T08:00:00+1:00",
                           "2027-01-15T08:00:00+01",
                           "2027-01-15T08:00:00 01:00",
                           "20270115T080000Z",
                           "2027-01-15T8:00:00Z",
                           "2027-01-15T08:-1:00Z",
                           "2027-01-15T0x:00:00Z",
                           "12027-01-15T08:00:00Z",
                           "2027/01/15T08:00:00Z",
                           "2027-01-15T08-00-00Z"}) {
    EXPECT_EQ(Of(text), kNone) << text;
  }
  EXPECT_EQ(Of(std::string("2027-01-15T08:00:00Z\0", 21)), kNone);
}

// Whatever one sign of a good text is changed to, the text is either none or still well formed.
TEST(MomentOfText, StandsAnySignAnywhere) {
  const std::string good = "2027-01-15T08:00:00.5+01:00";
  for (size_t at = 0; at < good.size(); ++at) {
    for (int sign = 0; sign < 256; ++sign) {
      std::string text = good;
      text[at] = static_cast<char>(sign);
      const bool digit_for_digit = std::isdigit(sign) != 0 && std::isdigit(good[at]) != 0;
      if (!digit_for_digit && text != good && MomentOfText(text)) {
        EXPECT_TRUE((at == 10 && sign == 't') || (at == 21 && sign == '-')) << text;
      }
    }
    EXPECT_EQ(Of(good.substr(0, at)), kNone) << at;
  }
}

}  // namespace
}  // namespace kova
