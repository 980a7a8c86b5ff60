// A scripted HTTP/1.1 server on 127.0.0.1, in the process of the test.
//
//   LoopbackServer server;
//   server.On("GET /directory", HttpReply::Json(200, R"({"newNonce":"x"})", {"Replay-Nonce: n1"}));
//   server.On("POST /order", HttpReply::Drop());           // the first request loses its
//   connection server.On("POST /order", HttpReply::Json(201, "{}"));  // the second and all later
//   ones client.SetupDirectory(server.Url("/directory"));
//   EXPECT_EQ(server.Requests().at(0).Header("Content-Type"), "application/jose+json");
//
// Replies of one route are given in the order of the On() calls; the last one is repeated. What no
// route matches goes to the handler given to Otherwise(), else gets 404 "No such route". Every
// reply closes its connection. Routes may be added while the server runs; all is thread-safe, and
// handlers run on the server's thread, one at a time.
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace kova::test {

struct HttpRequest {
  std::string method;   // "GET"
  std::string path;     // "/order"
  std::string query;    // what follows "?", undecoded; may be empty
  std::string version;  // "HTTP/1.1"
  std::vector<std::pair<std::string, std::string>> headers;  // as sent, in order
  std::string body;

  // The first value of that name, in any case; empty when there is none.
  [[nodiscard]] std::string Header(const std::string& name) const;

  [[nodiscard]] std::string Route() const { return method + " " + path; }  // "POST /order"
};

struct HttpReply {
  int status = 200;
  std::string reason = "OK";
  std::vector<std::string> headers;  // whole lines without line end, sent verbatim and in order
  std::string body;

  // Departures from good manners; at most one of them.
  bool drop = false;        // closes the connection without a byte
  bool raw = false;         // sends `body` alone, verbatim, and closes
  bool endless = false;     // repeats `body` without a length until the client has had enough
  size_t missing_tail = 0;  // promises the whole body, keeps back this many bytes

  // A reply with that body and a reason that fits the common statuses.
  static HttpReply Text(int status, std::string body, std::vector<std::string> headers = {});
  static HttpReply Json(int status, std::string body, std::vector<std::string> headers = {});
  static HttpReply Redirect(int status, const std::string& location);
  static HttpReply Drop();
  static HttpReply Raw(std::string bytes);
  static HttpReply Endless(std::string piece);
  static HttpReply CutShort(std::string body, size_t missing_tail);
};

class LoopbackServer {
 public:
  using Handler = std::function<HttpReply(const HttpRequest&)>;

  // Listens at once; 0 takes any free port. Aborts the test program when the port is taken.
  explicit LoopbackServer(int port = 0);
  ~LoopbackServer();
  LoopbackServer(const LoopbackServer&) = delete;
  LoopbackServer& operator=(const LoopbackServer&) = delete;

  [[nodiscard]] int Port() const { return port_; }
  [[nodiscard]] std::string Url(
      const std::string& target = "/") const;  // http://127.0.0.1:PORT/...

  // Appends a reply to the route "METHOD /path" (the query plays no part).
  void On(const std::string& route, HttpReply reply);

  // Answers the route by a function, now and for good.
  void On(const std::string& route, Handler handler);

  // Forgets the replies of a route, so that On() starts it anew.
  void Reset(const std::string& route);

  // Answers what no route matches.
  void Otherwise(Handler handler);

  // Everything received whole so far, oldest first.
  [[nodiscard]] std::vector<HttpRequest> Requests() const;
  [[nodiscard]] std::vector<std::string> Routes() const;  // the same as "METHOD /path" texts
  void ClearRequests();

 private:
  struct Route {
    std::vector<HttpReply> replies;
    size_t next = 0;
    Handler handler;
  };

  void Run();
  void Serve(int connection);
  HttpReply Answer(const HttpRequest& request);

  int listener_;
  int port_ = 0;
  std::atomic<bool> stopping_ = false;
  mutable std::mutex mutex_;
  std::map<std::string, Route> routes_;
  Handler otherwise_;
  std::vector<HttpRequest> requests_;
  std::thread thread_;
};

}  // namespace kova::test
