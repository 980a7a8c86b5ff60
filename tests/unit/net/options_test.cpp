#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/value.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "base/sl_error.h"
#include "curl_watch.h"
#include "debug_output.h"
#include "loopback_server.h"
#include "net/client_network.h"
#include "platform/device.h"

namespace kova {
namespace {

using test::CurlWatch;
using test::DebugOutput;
using test::LoopbackServer;

class Options : public testing::Test {
 protected:
  Options() {
    std::filesystem::create_directories("/usr/kova/etc");
    std::ofstream(platform::kDeviceRecordPath) << R"({"user_agent":"kova/1 test"})";
    std::filesystem::permissions(platform::kDeviceRecordPath, std::filesystem::perms::owner_read);
  }

  HttpClient http_;
  LoopbackServer server_;
};

TEST_F(Options, AreSetInTheirOrder) {
  const CurlWatch watch;
  http_.Get(server_.Url());
  EXPECT_EQ(watch.Calls(),
            (std::vector<std::string>{
                "URL=" + server_.Url(), "FOLLOWLOCATION=1", "HEADERFUNCTION", "HEADERDATA",
                "HEADER=0", "WRITEFUNCTION", "WRITEDATA",
                "HTTPHEADER=[Content-Type: application/jose+json]", "USERAGENT=kova/1 test",
                "HTTP_VERSION=" + std::to_string(CURL_HTTP_VERSION_1_1), "PROTOCOLS_STR=http,https",
                "REDIR_PROTOCOLS_STR=http,https", "NOSIGNAL=1", "cleanup", "free list"}));
}

TEST_F(Options, OfAPostAddTheTextAtTheEnd) {
  const CurlWatch watch;
  http_.Post(server_.Url(), Json::Value("x"));
  const std::vector<std::string> calls = watch.Calls();
  ASSERT_EQ(calls.size(), 16U);
  EXPECT_EQ(calls.at(13), "POSTFIELDS");
  EXPECT_EQ(calls.at(14), "cleanup");
  EXPECT_EQ(calls.at(15), "free list");
}

TEST_F(Options, AreReleasedAfterAFailure) {
  const CurlWatch watch;
  EXPECT_THROW(http_.Get("http://127.0.0.1:1/"), SLError);
  const std::vector<std::string> calls = watch.Calls();
  EXPECT_EQ(std::count(calls.begin(), calls.end(), "cleanup"), 1);
  EXPECT_EQ(calls.back(), "free list");
}

TEST_F(Options, ThatCannotBeSetAreNamedInOrder) {
  CurlWatch watch;
  watch.RefuseAll();
  const std::string shown = DebugOutput(2, [this] {
    errno = EBUSY;
    EXPECT_THROW(http_.Post("http://127.0.0.1/", Json::Value("x")), SLError);
  });
  EXPECT_THAT(shown,
              testing::StartsWith("DEBUG: Failed to set url (Device or resource busy)\n"
                                  "DEBUG: Failed to set follow location (Device or resource busy)\n"
                                  "DEBUG: Failed to set header function (Device or resource busy)\n"
                                  "DEBUG: Failed to set header data (Device or resource busy)\n"
                                  "DEBUG: Failed to set header (Device or resource busy)\n"
                                  "DEBUG: Failed to set wrtie function (Device or resource busy)\n"
                                  "DEBUG: Failed to set wrtie data (Device or resource busy)\n"
                                  "DEBUG: Failed to set http header (Device or resource busy)\n"));
  EXPECT_THAT(shown, testing::ContainsRegex("Failed to set user agent\\([^)]*\\)\n"
                                            "DEBUG: szUserAgent: \\[kova/1 test\\]\n"
                                            "DEBUG: Failed to set http version \\([^)]*\\)\n"
                                            "DEBUG: Failed to set protocols \\([^)]*\\)\n"
                                            "DEBUG: Failed to set redirect protocols \\([^)]*\\)\n"
                                            "DEBUG: Failed to set no signal \\([^)]*\\)\n"
                                            "DEBUG: Post Request: http://127.0.0.1/\n"
                                            "DEBUG: Post value: \"x\"\n\n"
                                            "DEBUG: Failed to set postfields \\([^)]*\\)\n$"));
}

TEST_F(Options, ThatCannotBeSetDoNotStopTheRequest) {
  CurlWatch watch;
  watch.Refuse({CURLOPT_FOLLOWLOCATION, CURLOPT_HTTPHEADER, CURLOPT_USERAGENT, CURLOPT_HEADER});
  server_.On("GET /", test::HttpReply::Text(200, "served"));
  EXPECT_EQ(http_.Get(server_.Url()).body, "served");
  EXPECT_EQ(server_.Requests().at(0).Header("Content-Type"), "");
  EXPECT_EQ(server_.Requests().at(0).Header("User-Agent"), "");
}

TEST_F(Options, FailuresAreQuietBelowDebugLevel2) {
  CurlWatch watch;
  watch.Refuse({CURLOPT_HTTPHEADER, CURLOPT_USERAGENT});
  EXPECT_EQ(DebugOutput(1, [this] { http_.Get(server_.Url()); }),
            "DEBUG: GET Request: " + server_.Url() + "\n");
}

TEST_F(Options, WithoutAHandleTheServerIsNotReachable) {
  CurlWatch watch;
  watch.GiveNoHandle();
  try {
    http_.Get(server_.Url());
    FAIL() << "no error";
  } catch (const SLError& error) {
    EXPECT_EQ(error.code, 100);
    EXPECT_EQ(error.message, "Server is not reachable.");
  }
  EXPECT_TRUE(server_.Requests().empty());
}

TEST(HttpGlobal, HoldsTheLibraryInitialised) {
  const CurlWatch watch;
  { const HttpGlobal global; }
  EXPECT_EQ(watch.Calls(),
            (std::vector<std::string>{"global init " + std::to_string(CURL_GLOBAL_ALL),
                                      "global cleanup"}));
}

}  // namespace
}  // namespace kova
