#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <json/value.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "base/sl_error.h"
#include "curl_watch.h"
#include "loopback_server.h"
#include "net/client_network.h"

namespace kova {
namespace {

using test::CurlReceiver;
using test::CurlWatch;
using test::HttpReply;
using test::LoopbackServer;

constexpr size_t kMaximumBody = size_t{2} << 20;
constexpr size_t kMaximumHeader = 1U << 20;

template <class Action>
void ExpectUnreachable(Action action) {
  try {
    action();
    ADD_FAILURE() << "no error";
  } catch (const SLError& error) {
    EXPECT_EQ(error.code, 100);
    EXPECT_EQ(error.message, "Server is not reachable.");
    EXPECT_EQ(error.file, "client_network");
  }
}

// Whether anybody came: counts connections and closes each at once.
class Doorbell {
 public:
  Doorbell() : listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    EXPECT_EQ(bind(listener_, reinterpret_cast<sockaddr*>(&address), length), 0);
    EXPECT_EQ(listen(listener_, 5), 0);
    EXPECT_EQ(getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length), 0);
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] {
      for (int caller = 0; (caller = accept(listener_, nullptr, nullptr)) >= 0; close(caller)) {
        ++rings_;
      }
    });
  }
  ~Doorbell() {
    shutdown(listener_, SHUT_RDWR);
    thread_.join();
    close(listener_);
  }
  Doorbell(const Doorbell&) = delete;
  Doorbell& operator=(const Doorbell&) = delete;

  [[nodiscard]] int Rings() const { return rings_; }

  // URLs that lead here by protocols that libcurl would speak.
  [[nodiscard]] std::vector<std::string> ForeignUrls() const {
    std::vector<std::string> urls;
    for (const char* protocol : {"ftp", "gopher", "dict", "scp", "imap", "telnet"}) {
      urls.push_back(std::string(protocol) + "://127.0.0.1:" + std::to_string(port_) + "/");
    }
    return urls;
  }

 private:
  int listener_;
  int port_ = 0;
  std::atomic<int> rings_ = 0;
  std::thread thread_;
};

class TransferFailure : public testing::Test {
 protected:
  void ExpectUnreachableAfter(const HttpReply& reply) {
    server_.Reset("GET /");
    server_.Reset("POST /");
    server_.On("GET /", reply);
    server_.On("POST /", reply);
    ExpectUnreachable([this] { http_.Get(server_.Url()); });
    ExpectUnreachable([this] { http_.Post(server_.Url(), Json::Value("x")); });
  }

  HttpClient http_;
  LoopbackServer server_;
};

TEST_F(TransferFailure, NobodyListens) {
  int port = 0;
  {
    const LoopbackServer gone;
    port = gone.Port();
  }
  const std::string url = "http://127.0.0.1:" + std::to_string(port) + "/";
  ExpectUnreachable([&] { http_.Get(url); });
  ExpectUnreachable([&] { http_.Post(url, Json::Value("x")); });
}

TEST_F(TransferFailure, TheNameDoesNotResolve) {
  ExpectUnreachable([this] { http_.Get("http://nowhere.invalid/"); });
}

TEST_F(TransferFailure, TheUrlIsNone) {
  for (const char* url : {"", "nonsense url", "http://", "http://[", "//", "http://a\r\nb/"}) {
    ExpectUnreachable([&] { http_.Get(url); });
  }
}

TEST_F(TransferFailure, TheServerDoesNotSpeakTls) {
  ExpectUnreachable(
      [this] { http_.Get("https://127.0.0.1:" + std::to_string(server_.Port()) + "/"); });
}

TEST_F(TransferFailure, TheConnectionIsDropped) { ExpectUnreachableAfter(HttpReply::Drop()); }

TEST_F(TransferFailure, TheBodyIsCutShort) {
  ExpectUnreachableAfter(HttpReply::CutShort("a body", 1));
  ExpectUnreachableAfter(HttpReply::CutShort("a body", 6));
}

TEST_F(TransferFailure, TheHeaderIsCutShort) { ExpectUnreachableAfter(HttpReply::Raw("HTT")); }

TEST_F(TransferFailure, TheReplyIsGarbage) {
  ExpectUnreachableAfter(HttpReply::Raw("<html>no status line</html>"));
  ExpectUnreachableAfter(HttpReply::Raw(std::string(5000, '\0')));
  ExpectUnreachableAfter(HttpReply::Raw("SSH-2.0-OpenSSH_9.2\r\n"));
  ExpectUnreachableAfter(
      HttpReply::Raw("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\n"));
}

TEST_F(TransferFailure, TheBodyIsLargerThanWeHold) {
  server_.On("GET /", HttpReply::Text(200, std::string(kMaximumBody, 'x')));
  EXPECT_EQ(http_.Get(server_.Url()).body.size(), kMaximumBody);
  ExpectUnreachableAfter(HttpReply::Text(200, std::string(kMaximumBody + 1, 'x')));
}

TEST_F(TransferFailure, TheBodyNeverEnds) {
  ExpectUnreachableAfter(HttpReply::Endless(std::string(65536, 'x')));
}

TEST_F(TransferFailure, TheHeaderNeverEnds) {
  std::string head = "HTTP/1.1 200 OK\r\n";
  while (head.size() < 2 * kMaximumHeader) head += "A: " + std::string(1000, 'a') + "\r\n";
  ExpectUnreachableAfter(HttpReply::Raw(head + "\r\n"));
}

// libcurl may have a lower limit of its own; ours holds without it.
TEST_F(TransferFailure, WeHoldNoMoreThanALimitOfHeaderAndBody) {
  CurlWatch watch;
  watch.PerformBy([](const CurlReceiver& header, const CurlReceiver& body) {
    EXPECT_TRUE(header.Take(std::string(kMaximumHeader - 1, 'h')));
    EXPECT_FALSE(header.Take("hh"));
    EXPECT_TRUE(header.Take("h"));
    EXPECT_FALSE(header.Take("h"));
    EXPECT_TRUE(body.Take(std::string(kMaximumBody - 1, 'b')));
    EXPECT_FALSE(body.Take("bb"));
    EXPECT_TRUE(body.Take("b"));
    EXPECT_FALSE(body.Take("b"));
    return CURLE_OK;
  });
  const HttpResponse response = http_.Get(server_.Url());
  EXPECT_TRUE(response.header == std::string(kMaximumHeader, 'h'));  // not a megabyte of message
  EXPECT_TRUE(response.body == std::string(kMaximumBody, 'b'));
}

TEST_F(TransferFailure, TheRedirectionsNeverEnd) {
  ExpectUnreachableAfter(HttpReply::Redirect(307, server_.Url() + "?" + std::string(5000, 'q')));
}

TEST_F(TransferFailure, TheUrlIsOfAnotherProtocol) {
  const Doorbell door;
  for (const std::string& url : door.ForeignUrls()) ExpectUnreachable([&] { http_.Get(url); });
  ExpectUnreachable([&] { http_.Get("file:///etc/passwd"); });
  EXPECT_EQ(door.Rings(), 0);
}

TEST_F(TransferFailure, TheServerRedirectsToAnotherProtocol) {
  const Doorbell door;
  for (const std::string& url : door.ForeignUrls()) {
    ExpectUnreachableAfter(HttpReply::Redirect(302, url));
  }
  ExpectUnreachableAfter(HttpReply::Redirect(302, "file:///etc/passwd"));
  EXPECT_EQ(door.Rings(), 0);
}

}  // namespace
}  // namespace kova
