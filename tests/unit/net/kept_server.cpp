#include "kept_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace kova::test {
namespace {

constexpr int kPollMilliseconds = 10;
constexpr char kReply[] =
    "HTTP/1.1 200 OK\r\nSet-Cookie: a=b; Path=/\r\nContent-Length: 4\r\n\r\nkept";
constexpr char kHead[] = "HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\n";

int Listen() {
  const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      listen(listener, 8) != 0) {
    std::perror("kept server");
    std::abort();
  }
  return listener;
}

int PortOf(int listener) {
  sockaddr_in address{};
  socklen_t length = sizeof address;
  getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
  return ntohs(address.sin_port);
}

bool AwaitReadable(int descriptor, const std::atomic<bool>& stopping) {
  while (!stopping) {
    pollfd readable{descriptor, POLLIN, 0};
    if (poll(&readable, 1, kPollMilliseconds) > 0) return true;
  }
  return false;
}

void Send(int connection, const std::string& text) {
  send(connection, text.data(), text.size(), MSG_NOSIGNAL);
}

}  // namespace

KeptServer::KeptServer(std::vector<Connection> fates)
    : fates_(std::move(fates)),
      listener_(Listen()),
      port_(PortOf(listener_)),
      thread_([this] { Run(); }) {}

KeptServer::~KeptServer() {
  stopping_ = true;
  thread_.join();
  close(listener_);
}

std::string KeptServer::Url(const std::string& path) const {
  return "http://127.0.0.1:" + std::to_string(port_) + path;
}

std::vector<int> KeptServer::Requests() const {
  const std::scoped_lock lock(mutex_);
  return requests_;
}

void KeptServer::AwaitHangUps(int count) const {
  while (closed_ < count) std::this_thread::yield();
}

// One connection at a time: a client that dials anew has left the old one.
void KeptServer::Run() {
  while (AwaitReadable(listener_, stopping_)) {
    const int connection = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    const size_t number = std::min<size_t>(connections_++, fates_.size() - 1);
    Serve(connection, fates_[number]);
    close(connection);
    ++closed_;
  }
}

void KeptServer::Serve(int connection, Connection fate) {
  for (int i = 0; fate.then == Then::kStay || i < fate.replies; ++i) {
    if (!TakeRequest(connection)) return;
    Send(connection, kReply);
  }
  if (fate.then == Then::kHangUp || !TakeRequest(connection)) return;
  if (fate.then == Then::kResetOnNext) {
    const linger at_once{1, 0};
    setsockopt(connection, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
  }
  if (fate.then == Then::kDripOnNext) {
    Send(connection, kHead);
    AwaitReadable(connection, stopping_);
  }
}

// False when the client hung up. A request comes in one piece here.
bool KeptServer::TakeRequest(int connection) {
  std::array<char, 65536> bytes{};
  if (!AwaitReadable(connection, stopping_)) return false;
  if (recv(connection, bytes.data(), bytes.size(), 0) <= 0) return false;
  const std::scoped_lock lock(mutex_);
  requests_.push_back(connections_);
  return true;
}

}  // namespace kova::test
