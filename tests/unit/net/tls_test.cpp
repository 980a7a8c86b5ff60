// Who is believed over TLS: nobody but a server whose certificate the host's trust store vouches
// for. A real TLS server plays the part.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <json/value.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include "base/sl_error.h"
#include "curl_watch.h"
#include "loopback_server.h"
#include "net/client_network.h"

namespace kova {
namespace {

constexpr char kTrustStore[] = "/etc/ssl/certs/ca-certificates.crt";
constexpr char kFolder[] = "/tmp/net_tls_test";

int FreePort() { return test::LoopbackServer().Port(); }

class Tls : public testing::Test {
 protected:
  Tls() : port_(FreePort()) {
    std::filesystem::create_directories(kFolder);
    std::filesystem::current_path(kFolder);
    const int made = std::system(
        "openssl req -x509 -newkey rsa:2048 -nodes -days 1 -subj /CN=localhost "
        "-addext subjectAltName=DNS:localhost -keyout key.pem -out cert.pem 2>/dev/null");
    EXPECT_EQ(made, 0);
    std::ofstream("page") << "served";
    trusted_before_ = Read(kTrustStore);
    StartServer();
  }

  ~Tls() override {
    kill(server_, SIGKILL);
    waitpid(server_, nullptr, 0);
    std::ofstream(kTrustStore, std::ios::trunc) << trusted_before_;
    std::filesystem::current_path("/");
  }

  [[nodiscard]] std::string Url(const std::string& host) const {
    return "https://" + host + ":" + std::to_string(port_) + "/page";
  }
  [[nodiscard]] static std::string Read(const std::string& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  [[nodiscard]] static std::string ServerLog() { return Read("server.log"); }

  HttpClient http_;

  static void Trust() { std::ofstream(kTrustStore, std::ios::app) << "\n" << Read("cert.pem"); }

 private:
  void StartServer() {
    const std::string accept = "127.0.0.1:" + std::to_string(port_);
    const char* arguments[] = {"openssl",     "s_server",     "-accept", accept.c_str(), "-cert",
                               "cert.pem",    "-key",         "key.pem", "-WWW",         "-alpn",
                               "h2,http/1.1", "-tlsextdebug", nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, "server.log", O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_adddup2(&actions, 1, 2);
    ASSERT_EQ(posix_spawnp(&server_, "openssl", &actions, nullptr,
                           const_cast<char* const*>(arguments), environ),
              0);
    posix_spawn_file_actions_destroy(&actions);
    for (int i = 0; i < 500 && ServerLog().find("ACCEPT") == std::string::npos; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    ASSERT_NE(ServerLog().find("ACCEPT"), std::string::npos);
  }

  int port_;
  pid_t server_ = -1;
  std::string trusted_before_;
};

TEST_F(Tls, BelievesACertificateOfTheTrustStore) {
  Trust();
  const HttpResponse response = http_.Get(Url("localhost"));
  EXPECT_EQ(response.status, 200);
  EXPECT_EQ(response.body, "served");
}

TEST_F(Tls, OffersNothingNewerThanHttp11) {
  Trust();
  http_.Get(Url("localhost"));
  const std::string log = ServerLog();
  const size_t offer = log.find("\"application layer protocol negotiation\" (id=16), len=11\n");
  ASSERT_NE(offer, std::string::npos) << log;
  EXPECT_NE(log.find("http/1.1\n", offer), std::string::npos) << log;
}

TEST_F(Tls, DoesNotBelieveACertificateThatNobodyVouchesFor) {
  EXPECT_THROW(http_.Get(Url("localhost")), SLError);
  EXPECT_THROW(http_.Post(Url("localhost"), Json::Value("x")), SLError);
}

TEST_F(Tls, DoesNotBelieveACertificateOfAnotherName) {
  Trust();
  EXPECT_THROW(http_.Get(Url("127.0.0.1")), SLError);
}

TEST(TrustStore, IsTheFileThatVouches) { EXPECT_EQ(TrustStorePath(), kTrustStore); }

TEST(TrustStore, IsUnknownWithoutAHandle) {
  test::CurlWatch watch;
  watch.GiveNoHandle();
  EXPECT_EQ(TrustStorePath(), "");
}

}  // namespace
}  // namespace kova
