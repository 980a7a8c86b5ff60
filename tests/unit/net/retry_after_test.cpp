#include <gtest/gtest.h>

#include <ctime>

#include "net/headers.h"

namespace kova {
namespace {

using std::chrono::seconds;

constexpr seconds kAbsent{77};

seconds Of(const std::string& value) {
  HttpResponse response;
  response.header = "HTTP/1.1 200 OK\r\nRetry-After: " + value + "\r\n\r\n";
  return RetryAfter(response).value_or(kAbsent);
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

TEST(RetryAfter, StandsNulBytes) { EXPECT_EQ(Of(std::string("5\0", 2)), kAbsent); }

}  // namespace
}  // namespace kova
