// An HTTP server on 127.0.0.1 that keeps connections open, until it does not.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace kova::test {

class KeptServer {
 public:
  // What becomes of a connection after it has answered `replies` requests.
  enum class Then {
    kStay,          // it answers for ever
    kHangUp,        // closed at once
    kHangUpOnNext,  // closed without a byte when the next request has come
    kResetOnNext,   // the same, by a reset
    kDripOnNext,    // the next reply's head, and never its body
  };
  struct Connection {
    int replies = 0;
    Then then = Then::kStay;
  };

  // The fate of each connection in turn; the last one is repeated.
  explicit KeptServer(std::vector<Connection> fates);
  ~KeptServer();
  KeptServer(const KeptServer&) = delete;
  KeptServer& operator=(const KeptServer&) = delete;

  [[nodiscard]] std::string Url(const std::string& path = "/") const;
  // For each request, the number of the connection that it came over, from 1.
  [[nodiscard]] std::vector<int> Requests() const;

  // Waits until the server has closed the connection that it is to hang up.
  void AwaitHangUps(int count) const;

 private:
  void Run();
  void Serve(int connection, Connection fate);
  [[nodiscard]] bool TakeRequest(int connection);

  std::vector<Connection> fates_;
  int listener_;
  int port_;
  std::atomic<bool> stopping_ = false;
  std::atomic<int> connections_ = 0;
  std::atomic<int> closed_ = 0;
  mutable std::mutex mutex_;
  std::vector<int> requests_;
  std::thread thread_;
};

}  // namespace kova::test
