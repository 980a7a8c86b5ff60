#include "dns_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <utility>

namespace kova::test {
namespace {

constexpr size_t kHeader = 12;
constexpr char kResponse = static_cast<char>(0x84);  // an authoritative response
constexpr char kTruncated = 0x02;

int Listen(int type) {
  const int listener = socket(AF_INET, type | SOCK_CLOEXEC, 0);
  const int on = 1;
  setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(53);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      (type == SOCK_STREAM && listen(listener, 8) != 0)) {
    std::perror("DNS server: cannot listen");
    std::abort();
  }
  return listener;
}

std::string Word(size_t value) {
  return {static_cast<char>((value >> 8) & 0xff), static_cast<char>(value & 0xff)};
}

DnsQuery Parse(const std::string& bytes, bool tcp) {
  DnsQuery query{bytes, {}, 0, tcp};
  size_t at = kHeader;
  while (at < bytes.size() && bytes[at] != 0) {
    const auto length = static_cast<unsigned char>(bytes[at]);
    query.name += (query.name.empty() ? "" : ".") + bytes.substr(at + 1, length);
    at += 1U + length;
  }
  query.type = static_cast<unsigned char>(bytes.at(at + 2));
  return query;
}

// The question as it was asked, without what followed it.
std::string Question(const DnsQuery& query) {
  return query.bytes.substr(kHeader, WireName(query.name).size() + 4);
}

std::string Head(const DnsQuery& query, char flags, int rcode, size_t answers) {
  return query.bytes.substr(0, 2) + std::string{flags, static_cast<char>(rcode)} + Word(1) +
         Word(answers) + Word(0) + Word(0);
}

bool ReceiveExactly(int connection, size_t length, std::string& bytes) {
  bytes.resize(length);
  return length == 0 ||
         recv(connection, bytes.data(), length, MSG_WAITALL) == static_cast<ssize_t>(length);
}

}  // namespace

std::string TxtData(const std::vector<std::string>& strings) {
  std::string data;
  for (const std::string& text : strings) data += static_cast<char>(text.size()) + text;
  return data;
}

std::string WireName(const std::string& name) {
  std::string wire;
  std::istringstream labels(name);
  for (std::string label; std::getline(labels, label, '.');) {
    if (!label.empty()) wire += static_cast<char>(label.size()) + label;
  }
  return wire + '\0';
}

std::string DnsReply(const DnsQuery& query, const std::vector<DnsRecord>& answers, int rcode) {
  std::string reply = Head(query, kResponse, rcode, answers.size()) + Question(query);
  for (const DnsRecord& record : answers) {
    reply += WireName(record.owner) + Word(record.type) + Word(1) + Word(0) + Word(60) +
             Word(record.rdata.size()) + record.rdata;
  }
  return reply;
}

std::string TruncatedReply(const DnsQuery& query) {
  return Head(query, kResponse | kTruncated, 0, 0) + Question(query);
}

DnsServer::DnsServer(Handler handler)
    : handler_(std::move(handler)),
      udp_(Listen(SOCK_DGRAM)),
      tcp_(Listen(SOCK_STREAM)),
      thread_([this] { Run(); }) {}

DnsServer::~DnsServer() {
  stopping_ = true;
  thread_.join();
  close(udp_);
  close(tcp_);
}

std::vector<DnsQuery> DnsServer::Queries() const {
  const std::scoped_lock lock(mutex_);
  return queries_;
}

void DnsServer::Run() {
  while (!stopping_) {
    std::array<pollfd, 2> sockets{{{udp_, POLLIN, 0}, {tcp_, POLLIN, 0}}};
    if (poll(sockets.data(), sockets.size(), 20) <= 0) continue;
    if ((sockets[0].revents & POLLIN) != 0) ServeUdp();
    if ((sockets[1].revents & POLLIN) != 0) ServeTcp();
  }
}

void DnsServer::ServeUdp() {
  std::array<char, 65536> buffer{};
  sockaddr_in client{};
  socklen_t size = sizeof client;
  const ssize_t length =
      recvfrom(udp_, buffer.data(), buffer.size(), 0, reinterpret_cast<sockaddr*>(&client), &size);
  if (length < static_cast<ssize_t>(kHeader)) return;
  const std::string reply = Reply({buffer.data(), static_cast<size_t>(length)}, false);
  if (reply.empty()) return;
  sendto(udp_, reply.data(), reply.size(), 0, reinterpret_cast<sockaddr*>(&client), size);
}

void DnsServer::ServeTcp() {
  const int connection = accept4(tcp_, nullptr, nullptr, SOCK_CLOEXEC);
  std::string size;
  std::string bytes;
  if (ReceiveExactly(connection, 2, size) &&
      ReceiveExactly(
          connection,
          static_cast<unsigned char>(size[0]) * 256U + static_cast<unsigned char>(size[1]),
          bytes)) {
    const std::string reply = Reply(bytes, true);
    const std::string framed = Word(reply.size()) + reply;
    if (!reply.empty()) send(connection, framed.data(), framed.size(), MSG_NOSIGNAL);
  }
  close(connection);
}

std::string DnsServer::Reply(const std::string& bytes, bool tcp) {
  const DnsQuery query = Parse(bytes, tcp);
  {
    const std::scoped_lock lock(mutex_);
    queries_.push_back(query);
  }
  return handler_(query);
}

}  // namespace kova::test
