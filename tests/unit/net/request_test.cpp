#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/value.h>
#include <signal.h>

#include <filesystem>
#include <fstream>

#include "debug_output.h"
#include "loopback_server.h"
#include "net/client_network.h"
#include "net/headers.h"
#include "platform/device.h"

namespace kova {
namespace {

using test::DebugOutput;
using test::HttpReply;
using test::HttpRequest;
using test::LoopbackServer;

class Request : public testing::Test {
 protected:
  Request() { WriteDeviceRecord(R"({"user_agent":"kova/1 test"})"); }

  static void WriteDeviceRecord(const std::string& text) {
    std::filesystem::create_directories("/usr/kova/etc");
    std::ofstream(platform::kDeviceRecordPath) << text;
    std::filesystem::permissions(platform::kDeviceRecordPath, std::filesystem::perms::owner_read);
  }

  HttpClient http_;
  LoopbackServer server_;
};

TEST_F(Request, GetReturnsTheReplyAsReceived) {
  server_.On("GET /directory",
             HttpReply::Text(200, "the body", {"Replay-Nonce: n1", "x-Odd:value", "Empty:"}));
  const HttpResponse response = http_.Get(server_.Url("/directory"));
  EXPECT_TRUE(response.ok);
  EXPECT_EQ(response.status, 200);
  EXPECT_EQ(response.body, "the body");
  EXPECT_EQ(response.header,
            "HTTP/1.1 200 OK\r\nReplay-Nonce: n1\r\nx-Odd:value\r\nEmpty:\r\n"
            "Content-Length: 8\r\nConnection: close\r\n\r\n");
}

TEST_F(Request, GetSendsTheFixedHeaders) {
  http_.Get(server_.Url("/a/b?c=d"));
  const HttpRequest request = server_.Requests().at(0);
  EXPECT_EQ(request.Route(), "GET /a/b");
  EXPECT_EQ(request.query, "c=d");
  EXPECT_EQ(request.version, "HTTP/1.1");
  EXPECT_EQ(request.Header("Content-Type"), "application/jose+json");
  EXPECT_EQ(request.Header("User-Agent"), "kova/1 test");
  EXPECT_EQ(request.Header("Content-Length"), "");
  EXPECT_EQ(request.body, "");
}

TEST_F(Request, PostSendsCompactJson) {
  Json::Value json;
  json["signature"] = "s";
  json["payload"] = "p/+";
  json["nested"]["list"].append(1);
  http_.Post(server_.Url("/order"), json);
  const HttpRequest request = server_.Requests().at(0);
  EXPECT_EQ(request.Route(), "POST /order");
  EXPECT_EQ(request.version, "HTTP/1.1");
  EXPECT_EQ(request.Header("Content-Type"), "application/jose+json");
  EXPECT_EQ(request.Header("User-Agent"), "kova/1 test");
  EXPECT_EQ(request.body, R"({"nested":{"list":[1]},"payload":"p/+","signature":"s"})");
}

TEST_F(Request, PostSendsAnyValue) {
  http_.Post(server_.Url(), Json::Value());
  http_.Post(server_.Url(), Json::Value("text with \0 in it"));
  http_.Post(server_.Url(), Json::Value(std::string("nul \0 byte", 10)));
  EXPECT_EQ(server_.Requests().at(0).body, "null");
  EXPECT_EQ(server_.Requests().at(1).body, "\"text with \"");
  EXPECT_EQ(server_.Requests().at(2).body, "\"nul \\u0000 byte\"");
}

TEST_F(Request, PostSendsALongBody) {
  const std::string text(3 << 20, 'x');
  http_.Post(server_.Url(), Json::Value(text));
  EXPECT_EQ(server_.Requests().at(0).body, "\"" + text + "\"");
}

TEST_F(Request, AnErrorStatusIsAReply) {
  for (const int status : {400, 403, 404, 429, 500, 503}) {
    const std::string path = "/" + std::to_string(status);
    server_.On("POST " + path, HttpReply::Json(status, R"({"type":"t"})"));
    const HttpResponse response = http_.Post(server_.Url(path), Json::Value("x"));
    EXPECT_TRUE(response.ok);
    EXPECT_EQ(response.status, status);
    EXPECT_EQ(response.body, R"({"type":"t"})");
  }
}

TEST_F(Request, ABodyMayHoldAnyBytes) {
  const std::string bytes("\0\xff\r\n\0", 5);
  server_.On("GET /", HttpReply::Text(200, bytes));
  EXPECT_EQ(http_.Get(server_.Url()).body, bytes);
}

TEST_F(Request, ARedirectIsFollowedAndTheFirstHopsHeadersComeFirst) {
  HttpReply first = HttpReply::Redirect(302, server_.Url("/there"));
  first.headers.emplace_back("Replay-Nonce: first");
  first.body = "moved";
  server_.On("GET /here", first);
  server_.On("GET /there", HttpReply::Text(200, "arrived", {"Replay-Nonce: second"}));
  const HttpResponse response = http_.Get(server_.Url("/here"));
  EXPECT_EQ(response.status, 200);
  EXPECT_EQ(response.body, "arrived");
  EXPECT_EQ(GetHeader(response, "Replay-Nonce"), "first");
  EXPECT_EQ(response.header,
            "HTTP/1.1 302 Found\r\nLocation: " + server_.Url("/there") +
                "\r\nReplay-Nonce: first\r\nContent-Length: 5\r\nConnection: close\r\n\r\n"
                "HTTP/1.1 200 OK\r\nReplay-Nonce: second\r\nContent-Length: 7\r\n"
                "Connection: close\r\n\r\n");
}

TEST_F(Request, ARedirectThatKeepsTheMethodKeepsThePostedText) {
  server_.On("POST /here", HttpReply::Redirect(307, server_.Url("/there")));
  server_.On("POST /there", HttpReply::Text(201, "made"));
  EXPECT_EQ(http_.Post(server_.Url("/here"), Json::Value("text")).status, 201);
  EXPECT_EQ(server_.Requests().at(1).body, "\"text\"");
}

TEST_F(Request, TheHeadersOfAnInterimReplyAreKept) {
  server_.On("GET /", HttpReply::Raw("HTTP/1.1 103 Early Hints\r\nLink: <e>;rel=\"up\"\r\n\r\n"
                                     "HTTP/1.1 204 No Content\r\nA: b\r\n\r\n"));
  const HttpResponse response = http_.Get(server_.Url());
  EXPECT_EQ(response.status, 204);
  EXPECT_EQ(GetLinkUrl(response, "up"), "e");
  EXPECT_EQ(GetHeader(response, "A"), "b");
}

TEST_F(Request, NothingIsRememberedFromOneRequestToTheNext) {
  server_.On("GET /", HttpReply::Text(200, "", {"Set-Cookie: a=b; Path=/"}));
  http_.Get(server_.Url());
  http_.Post(server_.Url(), Json::Value("x"));
  http_.Get(server_.Url());
  EXPECT_EQ(server_.Requests().at(1).Header("Cookie"), "");
  EXPECT_EQ(server_.Requests().at(2).Header("Cookie"), "");
  EXPECT_EQ(server_.Requests().at(2).body, "");
}

TEST_F(Request, ABrokenPipeIsHarmlessDuringARequestOnly) {
  bool ignored = false;
  server_.On("GET /", [&ignored](const HttpRequest&) {
    struct sigaction now {};
    sigaction(SIGPIPE, nullptr, &now);
    ignored = now.sa_handler == SIG_IGN;
    return HttpReply::Text(200, "");
  });
  http_.Get(server_.Url());
  struct sigaction after {};
  sigaction(SIGPIPE, nullptr, &after);
  EXPECT_TRUE(ignored);
  EXPECT_EQ(after.sa_handler, SIG_DFL);
}

TEST_F(Request, GoesOutWithoutAUserAgentWhenThereIsNone) {
  WriteDeviceRecord(R"({"user_agent":")" + std::string(256, 'x') + "\"}");
  const std::string shown = DebugOutput(1, [this] { http_.Get(server_.Url()); });
  EXPECT_EQ(server_.Requests().at(0).Header("User-Agent"), "");
  EXPECT_EQ(DebugOutput(2, [this] { http_.Get(server_.Url()); }).find("szUserAgent"),
            std::string::npos);
  EXPECT_EQ(shown, "DEBUG: Failed to KLIBBoxinfoUserAgentGet.\nDEBUG: GET Request: " +
                       server_.Url() + "\n");
}

TEST_F(Request, SendsAUserAgentThatJustFits) {
  const std::string longest(255, 'x');
  WriteDeviceRecord(R"({"user_agent":")" + longest + "\"}");
  http_.Get(server_.Url());
  EXPECT_EQ(server_.Requests().at(0).Header("User-Agent"), longest);
}

TEST_F(Request, AsksForTheUserAgentOfItsServiceTag) {
  WriteDeviceRecord("{}");
  http_.Get(server_.Url());
  EXPECT_THAT(server_.Requests().at(0).Header("User-Agent"),
              testing::MatchesRegex("^[^ ]+/[^ ]+ \\(DDNS; Linux [^)]+\\)$"));
}

TEST_F(Request, IsQuietAtDebugLevel0) {
  EXPECT_EQ(DebugOutput(0, [this] { http_.Get(server_.Url()); }), "");
}

TEST_F(Request, NamesItsUrlAtDebugLevel1) {
  EXPECT_EQ(DebugOutput(1, [this] { http_.Get(server_.Url("/a")); }),
            "DEBUG: GET Request: " + server_.Url("/a") + "\n");
  EXPECT_EQ(DebugOutput(1, [this] { http_.GetUnredirected(server_.Url("/a")); }),
            "DEBUG: GET Request: " + server_.Url("/a") + "\n");
  EXPECT_EQ(DebugOutput(1, [this] { http_.Post(server_.Url("/a"), Json::Value("x")); }),
            "DEBUG: Post Request: " + server_.Url("/a") + "\n");
}

TEST_F(Request, ShowsAGetAtDebugLevel2) {
  server_.On("GET /a", HttpReply::Text(200, "body %s %n"));
  EXPECT_EQ(DebugOutput(2, [this] { http_.Get(server_.Url("/a")); }),
            "DEBUG: szUserAgent: [kova/1 test]\nDEBUG: GET Request: " + server_.Url("/a") +
                "\nDEBUG: Curl Reply: [200] Header: [HTTP/1.1 200 OK\r\nContent-Length: 10\r\n"
                "Connection: close\r\n\r\n] Body: [body %s %n]\n");
}

TEST_F(Request, ShowsAPostAtDebugLevel2) {
  server_.On("POST /a", HttpReply::Text(201, "done"));
  Json::Value json;
  json["a"] = "b%n";
  EXPECT_EQ(DebugOutput(2, [&] { http_.Post(server_.Url("/a"), json); }),
            "DEBUG: szUserAgent: [kova/1 test]\nDEBUG: Post Request: " + server_.Url("/a") +
                "\nDEBUG: Post value: {\n   \"a\" : \"b%n\"\n}\n\n"
                "DEBUG: Curl Reply: [201] Header: [HTTP/1.1 201 Created\r\nContent-Length: 4\r\n"
                "Connection: close\r\n\r\n] Body: [done]\n");
}

}  // namespace
}  // namespace kova
