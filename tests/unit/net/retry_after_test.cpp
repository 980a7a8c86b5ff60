#include <gtest/gtest.h>

#include <ctime>

#include "net/headers.h"

namespace kova {
namespace {

using std::chrono::seconds;

constexpr seconds kAbsent{77};

HttpResponse With(const std::string& line) {
  HttpResponse response;
  response.header = "HTTP/1.1 200 OK\r\n" + line + "\r\n\r\n";
  return response;
}

seconds Of(const std::string& value) {
  return RetryAfter(With("Retry-After: " + value)).value_or(kAbsent);
}

// Between a minute and a day.
seconds LongOf(const std::string& line) {
  return RetryAfterWithin(With(line), seconds(60), seconds(86400)).value_or(kAbsent);
}

std::string DateIn(std::time_t distance) {
  const std::time_t when = std::time(nullptr) + distance;
  char text[64] = {};
  std::strftime(text, sizeof text, "%a, %d %b %Y %H:%M:%S GMT", std::gmtime(&when));
  return text;
}

TEST(RetryAfter, TakesSeconds) {
  EXPECT_EQ(Of("1"), seconds(1));
  EXPECT_EQ(Of("5"), seconds(5));
  EXPECT_EQ(Of("007"), seconds(7));
  EXPECT_EQ(Of("10"), seconds(10));
}

TEST(RetryAfter, HoldsSecondsBetweenOneAndTen) {
  EXPECT_EQ(Of("0"), seconds(1));
  EXPECT_EQ(Of("000"), seconds(1));
  EXPECT_EQ(Of("11"), seconds(10));
  EXPECT_EQ(Of("3600"), seconds(10));
  EXPECT_EQ(Of("99999999999"), seconds(10));
  EXPECT_EQ(Of(std::string(1000, '9')), seconds(10));
}

TEST(RetryAfter, TakesADate) {
  const seconds wait = Of(DateIn(6));
  EXPECT_GE(wait, seconds(4));
  EXPECT_LE(wait, seconds(6));
}

TEST(RetryAfter, HoldsADateBetweenOneAndTen) {
  EXPECT_EQ(Of(DateIn(-3600)), seconds(1));
  EXPECT_EQ(Of(DateIn(0)), seconds(1));
  EXPECT_EQ(Of(DateIn(3600)), seconds(10));
  EXPECT_EQ(Of("Wed, 21 Oct 2015 07:28:00 GMT"), seconds(1));
}

TEST(RetryAfter, IsAbsentWhenItIsNeither) {
  for (const char* text : {"", "soon", "-5", "1.5", "5 s", "0x5", "+5", "%n%n"}) {
    EXPECT_EQ(Of(text), kAbsent) << text;
  }
  EXPECT_EQ(RetryAfter(HttpResponse()).value_or(kAbsent), kAbsent);
}

TEST(RetryAfter, IgnoresBlanksAround) { EXPECT_EQ(Of(" 5 \t"), seconds(5)); }

TEST(RetryAfterWithin, HoldsSecondsAndDatesBetweenItsBounds) {
  EXPECT_EQ(LongOf("Retry-After: 0"), seconds(60));
  EXPECT_EQ(LongOf("Retry-After: 59"), seconds(60));
  EXPECT_EQ(LongOf("Retry-After: 61"), seconds(61));
  EXPECT_EQ(LongOf("Retry-After: 0021600"), seconds(21600));
  EXPECT_EQ(LongOf("Retry-After: 00000000021600"), seconds(21600));
  EXPECT_EQ(LongOf("Retry-After: 86399"), seconds(86399));
  EXPECT_EQ(LongOf("Retry-After: 86401"), seconds(86400));
  EXPECT_EQ(LongOf("Retry-After: 999999999"), seconds(86400));
  EXPECT_EQ(LongOf("Retry-After: " + std::string(1000, '9')), seconds(86400));
  EXPECT_EQ(LongOf("Retry-After: Wed, 21 Oct 2015 07:28:00 GMT"), seconds(60));
  EXPECT_EQ(LongOf("Retry-After: " + DateIn(200000)), seconds(86400));
  const seconds wait = LongOf("Retry-After: " + DateIn(7200));
  EXPECT_GE(wait, seconds(7190));
  EXPECT_LE(wait, seconds(7200));
}

TEST(RetryAfterWithin, FindsTheHeaderHoweverItIsWritten) {
  EXPECT_EQ(LongOf("retry-after: 70"), seconds(70));
  EXPECT_EQ(LongOf("RETRY-AFTER:70"), seconds(70));
  EXPECT_EQ(LongOf("Retry-After:\t 70 "), seconds(70));
  EXPECT_EQ(LongOf("X-Retry-After: 70"), kAbsent);
  EXPECT_EQ(LongOf("Retry-After-X: 70"), kAbsent);
  EXPECT_EQ(LongOf("Retry-After:"), kAbsent);
  EXPECT_EQ(LongOf("Retry-After: soon"), kAbsent);
}

TEST(RetryAfter, StandsNulBytes) { EXPECT_EQ(Of(std::string("5\0", 2)), kAbsent); }

}  // namespace
}  // namespace kova
