#include "net/client_network.h"

#include <curl/curl.h>
#include <signal.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "base/debug.h"
#include "base/json.h"
#include "base/sl_error.h"
#include "platform/device.h"

namespace kova {
namespace {

constexpr char kTag[] = "client_network";
constexpr size_t kMaximumBody = 32U << 20;
constexpr size_t kMaximumHeader = 1U << 20;  // all hops of a redirected request together
constexpr char kProtocols[] = "http,https";

template <auto F>
struct CurlFree {
  void operator()(auto* object) const noexcept { F(object); }
};
using CurlPtr = std::unique_ptr<CURL, CurlFree<curl_easy_cleanup>>;
using CurlListPtr = std::unique_ptr<curl_slist, CurlFree<curl_slist_free_all>>;

// A server that hangs up while we write must cost a request, not the process: with
// CURLOPT_NOSIGNAL libcurl leaves SIGPIPE alone.
class SigpipeIgnored {
 public:
  SigpipeIgnored() {
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &ignore, &before_);
  }
  ~SigpipeIgnored() { sigaction(SIGPIPE, &before_, nullptr); }
  SigpipeIgnored(const SigpipeIgnored&) = delete;
  SigpipeIgnored& operator=(const SigpipeIgnored&) = delete;

 private:
  struct sigaction before_ {};
};

// Where received bytes go. A server that sends more than `limit` fails the transfer.
struct Sink {
  std::string text;
  size_t limit;
};

size_t Receive(char* bytes, size_t size, size_t count, void* destination) noexcept {
  auto& sink = *static_cast<Sink*>(destination);
  const size_t length = size * count;
  if (length > sink.limit - sink.text.size()) return 0;
  try {
    sink.text.append(bytes, length);
  } catch (const std::bad_alloc&) {
    return 0;
  }
  return length;
}

// One request in flight. What libcurl is given lives in this object and outlives its handle.
class CurlRequest {
 public:
  explicit CurlRequest(const std::string& url);
  ~CurlRequest() = default;
  CurlRequest(const CurlRequest&) = delete;
  CurlRequest& operator=(const CurlRequest&) = delete;

  void SetPost(std::string text);
  void SetLimit(std::chrono::seconds limit);
  [[nodiscard]] HttpResponse Perform();

 private:
  // A failure is a debug message, "WHAT(reason)", and does not stop the request.
  void Set(CURLoption option, auto value, const char* what) {
    if ((curl_easy_setopt)(handle_.get(), option, value) == CURLE_OK) return;
    DebugDetail("%s(%s)", what, std::strerror(errno));
  }
  void SetUserAgent();

  SigpipeIgnored sigpipe_;
  Sink header_{{}, kMaximumHeader};
  Sink body_{{}, kMaximumBody};
  std::string post_;
  CurlListPtr header_list_;
  CurlPtr handle_;  // last, so that it goes first
};

CurlRequest::CurlRequest(const std::string& url)
    // The content type goes out with every request, GET included.
    : header_list_(curl_slist_append(nullptr, "Content-Type: application/jose+json")),
      handle_(curl_easy_init()) {
  Set(CURLOPT_URL, url.c_str(), "Failed to set url ");
  Set(CURLOPT_FOLLOWLOCATION, 1L, "Failed to set follow location ");
  Set(CURLOPT_HEADERFUNCTION, &Receive, "Failed to set header function ");
  Set(CURLOPT_HEADERDATA, &header_, "Failed to set header data ");
  Set(CURLOPT_HEADER, 0L, "Failed to set header ");
  Set(CURLOPT_WRITEFUNCTION, &Receive, "Failed to set wrtie function ");
  Set(CURLOPT_WRITEDATA, &body_, "Failed to set wrtie data ");
  Set(CURLOPT_HTTPHEADER, header_list_.get(), "Failed to set http header ");
  SetUserAgent();

  // HTTP/2 would deliver header names in lower case, and the look-up is case-sensitive.
  Set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1),
      "Failed to set http version ");
  Set(CURLOPT_PROTOCOLS_STR, kProtocols, "Failed to set protocols ");
  Set(CURLOPT_REDIR_PROTOCOLS_STR, kProtocols, "Failed to set redirect protocols ");
  Set(CURLOPT_NOSIGNAL, 1L, "Failed to set no signal ");
}

void CurlRequest::SetUserAgent() {
  std::array<char, 256> agent{};
  if (KLIBBoxinfoUserAgentGet("DDNS", agent.data(), static_cast<int>(agent.size())) != 0) {
    DebugStep("Failed to KLIBBoxinfoUserAgentGet.");
    return;
  }
  Set(CURLOPT_USERAGENT, agent.data(), "Failed to set user agent");
  DebugDetail("szUserAgent: [%s]", agent.data());
}

void CurlRequest::SetPost(std::string text) {
  post_ = std::move(text);
  Set(CURLOPT_POSTFIELDS, post_.c_str(), "Failed to set postfields ");
}

void CurlRequest::SetLimit(std::chrono::seconds limit) {
  Set(CURLOPT_TIMEOUT, static_cast<long>(limit.count()), "Failed to set timeout ");
}

HttpResponse CurlRequest::Perform() {
  if (curl_easy_perform(handle_.get()) != CURLE_OK) {
    throw Error(code::kUnreachable, kTag, "Server is not reachable.");
  }
  HttpResponse response;
  curl_easy_getinfo(handle_.get(), CURLINFO_RESPONSE_CODE, &response.status);
  DebugDetail("Curl Reply: [%ld] Header: [%s] Body: [%s]", response.status, header_.text.c_str(),
              body_.text.c_str());
  response.ok = true;
  response.header = std::move(header_.text);
  response.body = std::move(body_.text);
  return response;
}

}  // namespace

HttpGlobal::HttpGlobal() { curl_global_init(CURL_GLOBAL_ALL); }
HttpGlobal::~HttpGlobal() { curl_global_cleanup(); }

HttpResponse HttpGet(const std::string& url) {
  CurlRequest request(url);
  DebugStep("GET Request: %s", url.c_str());
  return request.Perform();
}

HttpResponse HttpGetWithin(const std::string& url, std::chrono::seconds limit) {
  CurlRequest request(url);
  request.SetLimit(limit);
  DebugStep("GET Request: %s", url.c_str());
  return request.Perform();
}

std::string TrustStorePath() {
  const CurlPtr handle(curl_easy_init());
  const char* path = nullptr;
  if (!handle || curl_easy_getinfo(handle.get(), CURLINFO_CAINFO, &path) != CURLE_OK) return {};
  return path == nullptr ? std::string() : std::string(path);
}

HttpResponse HttpPost(const std::string& url, const Json::Value& json) {
  CurlRequest request(url);
  std::string text = JsonToString(json);
  DebugStep("Post Request: %s", url.c_str());
  if (DebugLevel() >= 2) DebugDetail("Post value: %s", JsonStyledText(json).c_str());
  request.SetPost(std::move(text));
  return request.Perform();
}

std::string GetBody(const HttpResponse& response) {
  if (!response.ok) throw Error(code::kProtocol, kTag, "request not sucess.");
  return response.body;
}

Json::Value GetJsonBody(const HttpResponse& response) {
  Json::Value value;
  if (!JsonFromText(GetBody(response), value)) {
    throw Error(code::kProtocol, kTag, "body is not json.");
  }
  return value;
}

}  // namespace kova
