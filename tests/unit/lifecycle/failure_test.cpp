#include "lifecycle/failure.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace kova {
namespace {

TEST(FailureTest, AnErrorIsOneLineOfJsonWithoutItsLineNumber) {
  EXPECT_EQ(ErrorToJson(SLError(106, "no valid domain name", "kova-letsencrypt", 7)),
            "{\"error\":106,\"file\":\"kova-letsencrypt\",\"msg\":\"no valid domain name\"}\n");
}

TEST(FailureTest, TextsOfServersStayOnOneLine) {
  EXPECT_EQ(ErrorToJson(SLError(200, "a\n\"b\"", "client_v2", 1)),
            "{\"error\":200,\"file\":\"client_v2\",\"msg\":\"a\\n\\\"b\\\"\"}\n");
}

TEST(FailureTest, ALineOfTheLogHasNoLineFeed) {
  EXPECT_EQ(ErrorToLine(SLError(200, "a\n", "client_v2", 1)),
            "{\"error\":200,\"file\":\"client_v2\",\"msg\":\"a\\n\"}");
}

void ExpectCaptured(const std::function<void()>& work, int code, const std::string& message,
                    const std::string& file) {
  const std::optional<SLError> error = Capture(work);
  ASSERT_TRUE(error.has_value());
  EXPECT_EQ(error->code, code);
  EXPECT_EQ(error->message, message);
  EXPECT_EQ(error->file, file);
}

TEST(CaptureTest, WorkThatSucceedsGivesNothing) {
  EXPECT_FALSE(Capture([] {}).has_value());
}

TEST(CaptureTest, AnErrorComesBackAsItIs) {
  ExpectCaptured([] { throw SLError(110, "why", "client_v2", 3); }, 110, "why", "client_v2");
}

TEST(CaptureTest, AStandardExceptionIsCode202WithItsText) {
  ExpectCaptured([] { throw std::runtime_error("odd"); }, 202, "odd", "kova-letsencrypt");
}

TEST(CaptureTest, AnythingElseIsCode202) {
  ExpectCaptured([] { throw "glob error"; }, 202, "Catch unknow exepction.", "kova-letsencrypt");
}

}  // namespace
}  // namespace kova
