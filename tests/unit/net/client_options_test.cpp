// What a client's options change, and that nothing changes without them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/value.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "base/settings.h"
#include "base/sl_error.h"
#include "curl_watch.h"
#include "kept_server.h"
#include "loopback_server.h"
#include "net/client_network.h"

namespace kova {
namespace {

using test::CurlWatch;
using test::HttpReply;
using test::KeptServer;
using test::LoopbackServer;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using Then = KeptServer::Then;

constexpr HttpOptions kKept{.keep_connections = true};

int CodeOf(const std::function<void()>& action) {
  try {
    action();
    return 0;
  } catch (const SLError& error) {
    return error.code;
  }
}

TEST(KeepConnections, OneConnectionServesAllRequests) {
  const KeptServer server({{0, Then::kStay}});
  HttpClient client(kKept);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(client.Get(server.Url("/a")).body, "kept");
    EXPECT_EQ(client.Post(server.Url("/b"), Json::Value("x")).body, "kept");
  }
  EXPECT_THAT(server.Requests(), ElementsAre(1, 1, 1, 1, 1, 1));
}

TEST(KeepConnections, EachRequestHasItsOwnHandle) {
  const KeptServer server({{0, Then::kStay}});
  const CurlWatch watch;
  HttpClient client(kKept);
  client.Get(server.Url());
  client.Get(server.Url());
  EXPECT_EQ(std::ranges::count(watch.Calls(), "cleanup"), 2);
  EXPECT_EQ(std::ranges::count(watch.Calls(), "free list"), 2);
}

TEST(KeepConnections, NeitherCookiesNorNamesAreKept) {
  const KeptServer server({{0, Then::kStay}});
  const CurlWatch watch;
  HttpClient client(kKept);
  client.Get(server.Url());
  EXPECT_THAT(watch.Calls(), Contains("DNS_CACHE_TIMEOUT=0"));
  EXPECT_THAT(watch.Calls(), Not(Contains(HasSubstr("COOKIE"))));
}

TEST(KeepConnections, NothingIsKeptWithoutIt) {
  const KeptServer server({{0, Then::kStay}});
  HttpClient client;
  for (int i = 0; i < 3; ++i) client.Get(server.Url());
  EXPECT_THAT(server.Requests(), ElementsAre(1, 2, 3));
}

TEST(KeepConnections, NothingIsKeptBetweenClients) {
  const KeptServer server({{0, Then::kStay}});
  HttpClient(kKept).Get(server.Url());
  HttpClient(kKept).Get(server.Url());
  EXPECT_THAT(server.Requests(), ElementsAre(1, 2));
}

TEST(KeepConnections, AServerThatHungUpIsDialledAgain) {
  const KeptServer server({{1, Then::kHangUp}, {0, Then::kStay}});
  HttpClient client(kKept);
  client.Get(server.Url());
  server.AwaitHangUps(1);
  EXPECT_EQ(client.Post(server.Url(), Json::Value("x")).body, "kept");
  EXPECT_THAT(server.Requests(), ElementsAre(1, 2));
}

TEST(KeepConnections, AServerThatHangsUpAsWeSendIsDialledAgain) {
  for (const Then then : {Then::kHangUpOnNext, Then::kResetOnNext}) {
    const KeptServer server({{1, then}, {2, then}, {0, Then::kStay}});
    HttpClient client(kKept);
    client.Get(server.Url());
    EXPECT_EQ(client.Post(server.Url(), Json::Value("x")).body, "kept");
    client.Get(server.Url());
    EXPECT_EQ(client.Get(server.Url()).body, "kept");
    EXPECT_THAT(server.Requests(), ElementsAre(1, 1, 2, 2, 2, 3));
  }
}

TEST(KeepConnections, AFreshConnectionThatIsDroppedIsAFailure) {
  const KeptServer server({{0, Then::kHangUpOnNext}});
  HttpClient client(kKept);
  EXPECT_EQ(CodeOf([&] { client.Get(server.Url()); }), 100);
  EXPECT_THAT(server.Requests(), ElementsAre(1));
}

TEST(KeepConnections, OneDialTooManyIsAFailure) {
  const KeptServer server({{1, Then::kHangUpOnNext}, {0, Then::kHangUpOnNext}});
  HttpClient client(kKept);
  client.Get(server.Url());
  EXPECT_EQ(CodeOf([&] { client.Get(server.Url()); }), 100);
  EXPECT_THAT(server.Requests(), ElementsAre(1, 1, 2));
}

TEST(TransferTimeout, ADrippingServerFailsLikeAnyOtherAndKeepsNobodyBusy) {
  const KeptServer server({{0, Then::kDripOnNext}});
  const CurlWatch watch;
  HttpClient client({.transfer_timeout = std::chrono::seconds(1)});
  EXPECT_EQ(CodeOf([&] { client.Get(server.Url()); }), 100);
  EXPECT_LT(watch.Steps(), 50);  // over a second
}

TEST(TransferTimeout, TheNextRequestIsServedByAFreshConnection) {
  const KeptServer server({{1, Then::kDripOnNext}, {0, Then::kStay}});
  HttpClient client({.keep_connections = true, .transfer_timeout = std::chrono::seconds(1)});
  client.Get(server.Url());
  EXPECT_EQ(CodeOf([&] { client.Get(server.Url()); }), 100);
  EXPECT_EQ(client.Get(server.Url()).body, "kept");
  EXPECT_THAT(server.Requests(), ElementsAre(1, 1, 2));
}

TEST(TransferTimeout, ConnectingMayTakeAQuarter) {
  const KeptServer server({{0, Then::kStay}});
  const CurlWatch watch;
  HttpClient client({.transfer_timeout = std::chrono::seconds(2)});
  client.Post(server.Url(), Json::Value("x"));
  const std::vector<std::string> calls = watch.Calls();
  const auto first = std::ranges::find(calls, "NOSIGNAL=1");
  ASSERT_GE(calls.end() - first, 5);
  EXPECT_EQ(first[1], "TIMEOUT_MS=2000");
  EXPECT_EQ(first[2], "CONNECTTIMEOUT_MS=500");
  EXPECT_EQ(first[3], "QUICK_EXIT=1");
  EXPECT_EQ(first[4], "POSTFIELDS");
}

// A listener whose queue is full lets nobody in.
TEST(TransferTimeout, AServerThatDoesNotLetUsInIsNotWaitedForLonger) {
  const int listener = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  bind(listener, reinterpret_cast<sockaddr*>(&address), length);
  listen(listener, 0);
  getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
  const int only = socket(AF_INET, SOCK_STREAM, 0);
  ASSERT_EQ(connect(only, reinterpret_cast<sockaddr*>(&address), length), 0);

  HttpClient client({.transfer_timeout = std::chrono::seconds(2)});
  const std::string url = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/";
  const auto before = std::chrono::steady_clock::now();
  EXPECT_EQ(CodeOf([&] { client.Get(url); }), 100);
  EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(1500));
  close(only);
  close(listener);
}

TEST(MaximumBody, ALongerReplyFailsTheTransfer) {
  const LoopbackServer server;
  for (const size_t limit : {size_t{13}, size_t{12}}) {
    // "No such route"
    HttpClient client({.maximum_body = limit});
    EXPECT_EQ(CodeOf([&] { client.Get(server.Url()); }), limit == 13 ? 0 : 100);
  }
}

TEST(GetUnredirected, ARedirectionIsTheReply) {
  LoopbackServer server;
  server.On("GET /moved", HttpReply::Redirect(302, server.Url("/target")));
  server.On("GET /target", HttpReply::Text(200, "here"));
  HttpClient client;
  EXPECT_EQ(client.GetUnredirected(server.Url("/moved")).status, 302);
  EXPECT_THAT(server.Routes(), ElementsAre("GET /moved"));
  EXPECT_EQ(client.GetUnredirected(server.Url("/target")).body, "here");
  EXPECT_EQ(client.Get(server.Url("/moved")).body, "here");
}

TEST(HttpOptions, AreTheSettings) {
  Settings settings;
  EXPECT_FALSE(HttpOptionsOf(settings).keep_connections);
  EXPECT_EQ(HttpOptionsOf(settings).transfer_timeout, std::nullopt);
  settings.keep_connections = true;
  settings.transfer_timeout = 90;
  EXPECT_TRUE(HttpOptionsOf(settings).keep_connections);
  EXPECT_EQ(HttpOptionsOf(settings).transfer_timeout, std::chrono::seconds(90));
}

TEST(HttpClient, HoldsTheLibraryInitialised) {
  const CurlWatch watch;
  { const HttpClient client; }
  EXPECT_THAT(watch.Calls(), ElementsAre("global init 3", "global cleanup"));
}

}  // namespace
}  // namespace kova
