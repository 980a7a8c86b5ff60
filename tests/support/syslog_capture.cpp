#include "syslog_capture.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <regex>

namespace kova::test {
namespace {

constexpr char kSocketPath[] = "/dev/log";

// "<11>Nov 21 10:00:00 program: text"
SyslogMessage Parse(const std::string& datagram) {
  // The head alone: the library needs stack for each character that it matches.
  static const std::regex head(R"(<(\d+)>\w{3} [ \d]\d \d\d:\d\d:\d\d [^:]*?: )");
  std::smatch match;
  if (!std::regex_search(datagram, match, head, std::regex_constants::match_continuous)) {
    return {-1, datagram};
  }
  return {std::stoi(match[1]) & LOG_PRIMASK, match.suffix()};
}

}  // namespace

SyslogCapture::SyslogCapture()
    : socket_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
  if (std::getenv("KOVA_SANDBOX") == nullptr) {
    std::fputs("run these tests through tests/sandbox/sandbox\n", stderr);
    std::abort();
  }
  unlink(kSocketPath);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, kSocketPath, sizeof kSocketPath);
  if (bind(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    std::perror("cannot listen on /dev/log");
    std::abort();
  }
  closelog();  // a connection to an earlier listener is of no use
  reader_ = std::thread([this] {
    while (!stopping_) {
      pollfd readable{socket_, POLLIN, 0};
      poll(&readable, 1, 20);
      const std::scoped_lock lock(mutex_);
      Drain();
    }
  });
}

SyslogCapture::~SyslogCapture() {
  if (reader_.joinable()) HangUp();
  closelog();
}

void SyslogCapture::HangUp() {
  stopping_ = true;
  reader_.join();
  close(socket_);
  socket_ = -1;
  unlink(kSocketPath);
}

void SyslogCapture::Drain() {
  std::array<char, 65536> buffer{};
  ssize_t length = 0;
  while ((length = recv(socket_, buffer.data(), buffer.size(), 0)) > 0) {
    messages_.push_back(Parse(std::string(buffer.data(), static_cast<size_t>(length))));
  }
}

std::vector<SyslogMessage> SyslogCapture::Messages() {
  const std::scoped_lock lock(mutex_);
  Drain();
  return messages_;
}

std::vector<std::string> SyslogCapture::Texts() {
  static const std::regex position(R"(^([\w.-]+):\d+ )");
  std::vector<std::string> texts;
  for (const SyslogMessage& message : Messages()) {
    texts.push_back(std::regex_replace(message.text, position, "$1:# "));
  }
  return texts;
}

void SyslogCapture::Clear() {
  const std::scoped_lock lock(mutex_);
  Drain();
  messages_.clear();
}

}  // namespace kova::test
