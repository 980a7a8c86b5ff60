#include "base/sl_error.h"

#include <gtest/gtest.h>

#include <type_traits>

namespace kova {
namespace {

TEST(SLError, IsAPlainClass) {
  EXPECT_FALSE(std::is_polymorphic_v<SLError>);
  EXPECT_TRUE(std::is_copy_constructible_v<SLError>);
}

TEST(SLError, HoldsItsFourFields) {
  const SLError error(105, std::string("message with % signs %s"), "client_v2", 42);
  EXPECT_EQ(error.code, 105);
  EXPECT_EQ(error.message, "message with % signs %s");
  EXPECT_EQ(error.file, "client_v2");
  EXPECT_EQ(error.line, 42);
}

TEST(SLError, FormatsItsMessage) {
  const SLError error(200, "client_v1", 7, "Revoke failed - %ld  %s", 400L, "detail");
  EXPECT_EQ(error.code, 200);
  EXPECT_EQ(error.message, "Revoke failed - 400  detail");
  EXPECT_EQ(error.file, "client_v1");
  EXPECT_EQ(error.line, 7);
}

TEST(SLError, KeepsAFormattedMessageOf511Bytes) {
  const std::string text(511, 'x');
  EXPECT_EQ(SLError(200, "utils", 1, "%s", text.c_str()).message, text);
}

TEST(SLError, CutsALongerFormattedMessage) {
  const std::string text(512, 'x');
  EXPECT_EQ(SLError(200, "utils", 1, "%s", text.c_str()).message, std::string(511, 'x'));
  EXPECT_EQ(SLError(200, "utils", 1, "%100000d", 5).message, std::string(511, ' '));
}

TEST(SLError, KeepsAGivenMessageWhole) {
  EXPECT_EQ(SLError(200, std::string(2000, 'x'), "utils", 1).message, std::string(2000, 'x'));
}

TEST(SLError, TakesAServersTextLiterally) {
  for (const char* hostile : {"100% wrong", "%s%s%s%n%n", "%", "%*.*f", "%1$s"}) {
    EXPECT_EQ(SLError::FromServerText(102, "client_v2", hostile).message, hostile);
  }
}

TEST(SLError, CutsAServersText) {
  EXPECT_EQ(SLError::FromServerText(102, "client_v2", std::string(100000, 'x')).message,
            std::string(511, 'x'));
}

TEST(SLError, KnowsWhereAServersTextWasRaised) {
  const SLError error = SLError::FromServerText(104, "client_v2", "slow down");
  EXPECT_EQ(error.line, __LINE__ - 1);
  EXPECT_EQ(error.code, 104);
  EXPECT_EQ(error.file, "client_v2");
}

TEST(Error, KnowsItsThrowSite) {
  const int line = __LINE__ + 2;
  try {
    throw Error(code::kLocal, "challenge", "no % format");
  } catch (SLError& error) {
    EXPECT_EQ(error.code, 202);
    EXPECT_EQ(error.message, "no % format");
    EXPECT_EQ(error.file, "challenge");
    EXPECT_EQ(error.line, line);
  }
}

TEST(ErrorCodes, AreTheOnesThatCallersKnow) {
  EXPECT_EQ(code::kUnreachable, 100);
  EXPECT_EQ(code::kConnection, 101);
  EXPECT_EQ(code::kRefused, 102);
  EXPECT_EQ(code::kAccountRateLimit, 103);
  EXPECT_EQ(code::kOrderRateLimit, 104);
  EXPECT_EQ(code::kAccountRefused, 105);
  EXPECT_EQ(code::kNoDomain, 106);
  EXPECT_EQ(code::kRetryWithPortMap, 107);
  EXPECT_EQ(code::kNotKovaDdns, 108);
  EXPECT_EQ(code::kDns, 109);
  EXPECT_EQ(code::kUnauthorized, 110);
  EXPECT_EQ(code::kProtocol, 200);
  EXPECT_EQ(code::kAccountKey, 201);
  EXPECT_EQ(code::kLocal, 202);
  EXPECT_EQ(code::kChallengeSetup, 203);
  EXPECT_EQ(code::kNoNonce, 204);
  EXPECT_EQ(code::kBadNonceFinalize, 205);
}

}  // namespace
}  // namespace kova
