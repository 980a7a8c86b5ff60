// HTTP transport: GET, and POST of a JSON value, each on a fresh connection.
//
// A reply with an error status is a reply; only a transfer that fails throws. Peer and host
// verification are libcurl's defaults (on), redirects are followed, HTTP/1.1 is asked for so that
// header names arrive as the server wrote them.
#pragma once

#include <json/value.h>

#include <chrono>
#include <string>

namespace kova {

struct HttpResponse {
  bool ok = false;     // a transfer completed
  std::string header;  // header lines of every hop, as received, line ends included
  std::string body;
  long status = 500;  // HTTP status; 500 until a transfer completed
};

// libcurl initialised for the life of the object. Each ACME client holds one.
class HttpGlobal {
 public:
  HttpGlobal();
  ~HttpGlobal();
  HttpGlobal(const HttpGlobal&) = delete;
  HttpGlobal& operator=(const HttpGlobal&) = delete;
};

// Both throw SLError 100 "Server is not reachable." (file "client_network") when the transfer
// failed, also when the reply has more than 32 MiB of body or 1 MiB of header text (all hops
// together), or the URL or a redirection is of another protocol than http and https.
HttpResponse HttpGet(const std::string& url);
HttpResponse HttpPost(const std::string& url, const Json::Value& json);

// As HttpGet, given up after `limit`: for a look at this host's own servers.
HttpResponse HttpGetWithin(const std::string& url, std::chrono::seconds limit);

// The file of authorities that peers are verified with; empty when libcurl knows of none.
std::string TrustStorePath();

// The body; throws SLError 200 "request not sucess." when no transfer completed.
std::string GetBody(const HttpResponse& response);

// The body parsed as JSON, of any type; throws SLError 200 "body is not json.".
Json::Value GetJsonBody(const HttpResponse& response);

}  // namespace kova
