// HTTP transport: GET, and POST of a JSON value.
//
// A reply with an error status is a reply; only a transfer that fails throws. Peer and host
// verification are libcurl's defaults (on), redirects are followed unless
// stated, HTTP/1.1 is asked for so that header names arrive as the server wrote them.
#pragma once

#include <json/value.h>

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>

namespace kova {

class Connections;
class CurlRequest;
struct Settings;

struct HttpResponse {
  bool ok = false;     // a transfer completed
  std::string header;  // header lines of every hop, as received, line ends included
  std::string body;
  long status = 500;  // HTTP status; 500 until a transfer completed
};

struct HttpOptions {
  // Connections stay open for the next request. Without it nothing is kept from one request to the
  // next: each one resolves, connects and shakes hands anew.
  bool keep_connections = false;
  // One transfer, redirections included, that takes longer fails; connecting may take a quarter of
  // it. Without it a transfer may block as long as libcurl lets it.
  std::optional<std::chrono::seconds> transfer_timeout = std::nullopt;
  // Bytes; a longer reply is a transfer that failed. Far more than the longest chain needs, and so
  // little that its copies, parsed and escaped, fit the memory of a small host.
  size_t maximum_body = size_t{2} << 20;
};

// `keepconnections` and `transfertimeout`.
HttpOptions HttpOptionsOf(const Settings& settings);

// libcurl initialised for the life of the object.
class HttpGlobal {
 public:
  HttpGlobal();
  ~HttpGlobal();
  HttpGlobal(const HttpGlobal&) = delete;
  HttpGlobal& operator=(const HttpGlobal&) = delete;
};

// Who asks: owns libcurl's initialisation and the connections that are kept. Each request has an
// easy handle of its own; neither cookies nor resolved names are kept in either case.
class HttpClient {
 public:
  explicit HttpClient(HttpOptions options = {});
  ~HttpClient();
  HttpClient(const HttpClient&) = delete;
  HttpClient& operator=(const HttpClient&) = delete;

  // All throw SLError 100 "Server is not reachable." (file "client_network") when the transfer
  // failed, also when the reply has more than `maximum_body` or 1 MiB of header text (all hops
  // together), or the URL or a redirection is of another protocol than http and https. A server
  // that hung up on a kept connection is dialled again before that.
  HttpResponse Get(const std::string& url);
  HttpResponse Post(const std::string& url, const Json::Value& json);

  // As Get, but a redirection is the reply.
  HttpResponse GetUnredirected(const std::string& url);

 private:
  HttpResponse Perform(CurlRequest& request);

  HttpGlobal global_;
  HttpOptions options_;
  std::unique_ptr<Connections> kept_;  // none: each request has its own
};

// The file of authorities that peers are verified with; empty when libcurl knows of none.
std::string TrustStorePath();

// The body; throws SLError 200 "request not sucess." when no transfer completed.
std::string GetBody(const HttpResponse& response);

// The body parsed as JSON, of any type; throws SLError 200 "body is not json.".
Json::Value GetJsonBody(const HttpResponse& response);

}  // namespace kova
