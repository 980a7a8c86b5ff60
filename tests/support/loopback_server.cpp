#include "loopback_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <strings.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <sstream>

namespace kova::test {
namespace {

constexpr int kPollMilliseconds = 20;
constexpr int kPatienceSeconds = 10;  // with a client that stops in the middle

const char* ReasonOf(int status) {
  static const std::map<int, const char*> reasons = {{200, "OK"},
                                                     {201, "Created"},
                                                     {204, "No Content"},
                                                     {301, "Moved Permanently"},
                                                     {302, "Found"},
                                                     {303, "See Other"},
                                                     {307, "Temporary Redirect"},
                                                     {308, "Permanent Redirect"},
                                                     {400, "Bad Request"},
                                                     {403, "Forbidden"},
                                                     {404, "Not Found"},
                                                     {409, "Conflict"},
                                                     {429, "Too Many Requests"},
                                                     {500, "Internal Server Error"},
                                                     {503, "Service Unavailable"}};
  const auto found = reasons.find(status);
  return found == reasons.end() ? "Unknown" : found->second;
}

[[noreturn]] void Fatal(const char* what) {
  std::perror(what);
  std::abort();
}

int Listen(int port) {
  const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int on = 1;
  setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    Fatal("loopback server: cannot bind");
  }
  if (listen(listener, 64) != 0) Fatal("loopback server: cannot listen");
  return listener;
}

int PortOf(int listener) {
  sockaddr_in address{};
  socklen_t length = sizeof address;
  getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
  return ntohs(address.sin_port);
}

bool SendAll(int connection, const std::string& bytes) {
  size_t sent = 0;
  while (sent < bytes.size()) {
    const ssize_t step = send(connection, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (step <= 0) return false;
    sent += static_cast<size_t>(step);
  }
  return true;
}

// Appends what arrives; false at the end of the stream.
bool ReceiveSome(int connection, std::string& bytes) {
  std::array<char, 65536> buffer{};
  const ssize_t length = recv(connection, buffer.data(), buffer.size(), 0);
  if (length <= 0) return false;
  bytes.append(buffer.data(), static_cast<size_t>(length));
  return true;
}

void ParseHead(const std::string& head, HttpRequest& request) {
  std::istringstream lines(head);
  std::string line;
  std::getline(lines, line);
  std::istringstream first(line);
  std::string target;
  first >> request.method >> target >> request.version;
  const size_t mark = target.find('?');
  request.path = target.substr(0, mark);
  if (mark != std::string::npos) request.query = target.substr(mark + 1);
  while (std::getline(lines, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    const size_t colon = line.find(':');
    if (colon == std::string::npos) continue;
    const size_t value = line.find_first_not_of(' ', colon + 1);
    request.headers.emplace_back(line.substr(0, colon),
                                 value == std::string::npos ? "" : line.substr(value));
  }
}

constexpr char kTlsHandshake = 0x16;  // the first byte of a client that expects TLS

// None when the client went away before its request was whole, or speaks something else.
std::optional<HttpRequest> ReadRequest(int connection) {
  std::string bytes;
  size_t head_end = 0;
  while ((head_end = bytes.find("\r\n\r\n")) == std::string::npos) {
    if (!ReceiveSome(connection, bytes) || bytes.front() == kTlsHandshake) return std::nullopt;
  }
  HttpRequest request;
  ParseHead(bytes.substr(0, head_end + 2), request);
  const std::string length = request.Header("Content-Length");
  const size_t expected = length.empty() ? 0 : std::stoul(length);
  if (!request.Header("Expect").empty()) SendAll(connection, "HTTP/1.1 100 Continue\r\n\r\n");
  request.body = bytes.substr(head_end + 4);
  while (request.body.size() < expected) {
    if (!ReceiveSome(connection, request.body)) return std::nullopt;
  }
  return request;
}

void SendReply(int connection, const HttpReply& reply) {
  if (reply.drop) return;
  if (reply.raw) {
    SendAll(connection, reply.body);
    return;
  }
  std::string head = "HTTP/1.1 " + std::to_string(reply.status) + " " + reply.reason + "\r\n";
  for (const std::string& line : reply.headers) head += line + "\r\n";
  if (!reply.endless) head += "Content-Length: " + std::to_string(reply.body.size()) + "\r\n";
  head += "Connection: close\r\n\r\n";
  if (!SendAll(connection, head)) return;
  while (reply.endless && SendAll(connection, reply.body)) {
  }
  if (reply.endless) return;
  SendAll(connection, reply.body.substr(0, reply.body.size() - reply.missing_tail));
}

// Closing with unread input would reset the connection under the reply.
void CloseGently(int connection) {
  shutdown(connection, SHUT_WR);
  std::string rest;
  while (ReceiveSome(connection, rest)) rest.clear();
  close(connection);
}

}  // namespace

std::string HttpRequest::Header(const std::string& name) const {
  for (const auto& [key, value] : headers) {
    if (strcasecmp(key.c_str(), name.c_str()) == 0) return value;
  }
  return {};
}

HttpReply HttpReply::Text(int status, std::string body, std::vector<std::string> headers) {
  HttpReply reply;
  reply.status = status;
  reply.reason = ReasonOf(status);
  reply.headers = std::move(headers);
  reply.body = std::move(body);
  return reply;
}

HttpReply HttpReply::Json(int status, std::string body, std::vector<std::string> headers) {
  headers.insert(headers.begin(), "Content-Type: application/json");
  return Text(status, std::move(body), std::move(headers));
}

HttpReply HttpReply::Redirect(int status, const std::string& location) {
  return Text(status, "", {"Location: " + location});
}

HttpReply HttpReply::Drop() {
  HttpReply reply;
  reply.drop = true;
  return reply;
}

HttpReply HttpReply::Raw(std::string bytes) {
  HttpReply reply;
  reply.raw = true;
  reply.body = std::move(bytes);
  return reply;
}

HttpReply HttpReply::Endless(std::string piece) {
  HttpReply reply = Text(200, std::move(piece));
  reply.endless = true;
  return reply;
}

HttpReply HttpReply::CutShort(std::string body, size_t missing_tail) {
  HttpReply reply = Text(200, std::move(body));
  reply.missing_tail = missing_tail;
  return reply;
}

LoopbackServer::LoopbackServer(int port)
    : listener_(Listen(port)), port_(PortOf(listener_)), thread_([this] { Run(); }) {}

LoopbackServer::~LoopbackServer() {
  stopping_ = true;
  thread_.join();
  close(listener_);
}

std::string LoopbackServer::Url(const std::string& target) const {
  return "http://127.0.0.1:" + std::to_string(port_) + target;
}

void LoopbackServer::On(const std::string& route, HttpReply reply) {
  const std::scoped_lock lock(mutex_);
  routes_[route].replies.push_back(std::move(reply));
}

void LoopbackServer::On(const std::string& route, Handler handler) {
  const std::scoped_lock lock(mutex_);
  routes_[route].handler = std::move(handler);
}

void LoopbackServer::Reset(const std::string& route) {
  const std::scoped_lock lock(mutex_);
  routes_.erase(route);
}

void LoopbackServer::Otherwise(Handler handler) {
  const std::scoped_lock lock(mutex_);
  otherwise_ = std::move(handler);
}

std::vector<HttpRequest> LoopbackServer::Requests() const {
  const std::scoped_lock lock(mutex_);
  return requests_;
}

std::vector<std::string> LoopbackServer::Routes() const {
  std::vector<std::string> routes;
  for (const HttpRequest& request : Requests()) routes.push_back(request.Route());
  return routes;
}

void LoopbackServer::ClearRequests() {
  const std::scoped_lock lock(mutex_);
  requests_.clear();
}

void LoopbackServer::Run() {
  while (!stopping_) {
    pollfd readable{listener_, POLLIN, 0};
    if (poll(&readable, 1, kPollMilliseconds) <= 0) continue;
    const int connection = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (connection < 0) continue;
    const timeval patience{kPatienceSeconds, 0};
    setsockopt(connection, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    setsockopt(connection, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
    Serve(connection);
    CloseGently(connection);
  }
}

void LoopbackServer::Serve(int connection) {
  const std::optional<HttpRequest> request = ReadRequest(connection);
  if (!request) return;
  {
    const std::scoped_lock lock(mutex_);
    requests_.push_back(*request);
  }
  SendReply(connection, Answer(*request));
}

HttpReply LoopbackServer::Answer(const HttpRequest& request) {
  Handler handler;
  {
    const std::scoped_lock lock(mutex_);
    handler = otherwise_;
    const auto found = routes_.find(request.Route());
    if (found != routes_.end()) {
      Route& route = found->second;
      if (!route.handler) {
        const size_t index = route.next;
        if (route.next + 1 < route.replies.size()) ++route.next;
        return route.replies[index];
      }
      handler = route.handler;
    }
  }
  if (handler) return handler(request);  // unlocked: it may use the server
  return HttpReply::Text(404, "No such route");
}

}  // namespace kova::test
