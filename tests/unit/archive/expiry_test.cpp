#include <openssl/err.h>
#include <syslog.h>

#include <ctime>
#include <limits>
#include <regex>

#include "archive/integrity.h"
#include "archive_fixture.h"
#include "test_certificates.h"

namespace kova::cert_archive {
namespace {

using test::ArchiveTest;
using test::MakePemPair;
using test::Write;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kPath[] = "/usr/kova/cert.pem";
constexpr long kDay = 86400;

class ExpiryTest : public ArchiveTest {
 protected:
  static void ExpireIn(long seconds) { Write(kPath, MakePemPair(seconds).certificate); }
};

TEST_F(ExpiryTest, WithZeroDaysOnlyWhatHasExpiredIsDue) {
  ExpireIn(-60);
  EXPECT_TRUE(ExpiresWithin(kPath, 0));
  EXPECT_THAT(Log(), IsEmpty());
  ExpireIn(60);
  EXPECT_FALSE(ExpiresWithin(kPath, 0));
}

TEST_F(ExpiryTest, ThirtyDaysLookThirtyDaysAhead) {
  ExpireIn(30 * kDay - 60);
  EXPECT_TRUE(ExpiresWithin(kPath, 30));
  ExpireIn(30 * kDay + 60);
  EXPECT_FALSE(ExpiresWithin(kPath, 30));
  EXPECT_TRUE(ExpiresWithin(kPath, 31));
  ExpireIn(-10 * kDay);
  EXPECT_TRUE(ExpiresWithin(kPath, -9));
  EXPECT_FALSE(ExpiresWithin(kPath, -11));
}

TEST_F(ExpiryTest, TheLargestNumbersOfDaysDoNotOverflow) {
  ExpireIn(60);
  EXPECT_FALSE(ExpiresWithin(kPath, std::numeric_limits<std::int32_t>::min()));
  EXPECT_TRUE(ExpiresWithin(kPath, 1000000));
  syslog_.Clear();
  // Beyond the year 9999 no comparison is possible, which is "not due".
  EXPECT_FALSE(ExpiresWithin(kPath, std::numeric_limits<std::int32_t>::max()));
  EXPECT_THAT(Log(), testing::ElementsAre(testing::HasSubstr(" will not expired at ")));
}

TEST_F(ExpiryTest, SaysAtDebugPriorityWhatIsNotDue) {
  ExpireIn(60 * kDay);
  const long long before = std::time(nullptr) + 30 * kDay;
  EXPECT_FALSE(ExpiresWithin(kPath, 30));
  ASSERT_EQ(syslog_.Messages().size(), 1U);
  EXPECT_EQ(syslog_.Messages()[0].priority, LOG_DEBUG);
  std::smatch match;
  const std::string text = Log()[0];
  ASSERT_TRUE(std::regex_match(
      text, match, std::regex("utils.cpp:# /usr/kova/cert.pem will not expired at (\\d+)")));
  EXPECT_GE(std::stoll(match[1]), before);
  EXPECT_LE(std::stoll(match[1]), before + 5);
}

TEST_F(ExpiryTest, WhatCannotBeReadIsNotDue) {
  EXPECT_FALSE(ExpiresWithin(kPath, 30));
  Write(kPath, "no certificate");
  EXPECT_FALSE(ExpiresWithin(kPath, 30));
  Write(kPath, MakePemPair(-60).key);
  EXPECT_FALSE(ExpiresWithin(kPath, 30));
  EXPECT_THAT(
      Log(),
      ElementsAre("utils.cpp:# Failed to open /usr/kova/cert.pem (No such file or directory)",
                  "utils.cpp:# Failed to read /usr/kova/cert.pem (Success)",
                  "utils.cpp:# Failed to read /usr/kova/cert.pem (Success)"));
}

TEST_F(ExpiryTest, LeavesNoErrorForTheNextOneToFind) {
  EXPECT_FALSE(ExpiresWithin(kPath, 30));
  EXPECT_EQ(ERR_peek_error(), 0U);
  Write(kPath, "no certificate");
  EXPECT_FALSE(ExpiresWithin(kPath, 30));
  EXPECT_EQ(ERR_peek_error(), 0U);
}

TEST_F(ExpiryTest, ReadsTheFirstCertificate) {
  Write(kPath, MakePemPair(-60).certificate + MakePemPair(60 * kDay).certificate);
  EXPECT_TRUE(ExpiresWithin(kPath, 0));
  Write(kPath, "text before\n" + MakePemPair(-60).certificate);
  EXPECT_TRUE(ExpiresWithin(kPath, 0));
}

}  // namespace
}  // namespace kova::cert_archive
