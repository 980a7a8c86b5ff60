#include "net/curl_request.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

#include "base/debug.h"
#include "base/sl_error.h"
#include "platform/device.h"
#include "platform/signals.h"

namespace kova {
namespace {

constexpr char kTag[] = "client_network";
constexpr size_t kMaximumHeader = 1U << 20;  // all hops of a redirected request together
constexpr char kProtocols[] = "http,https";

}  // namespace

size_t CurlRequest::Receive(char* bytes, size_t size, size_t count, void* sink) noexcept {
  auto& [text, limit] = *static_cast<Sink*>(sink);
  const size_t length = size * count;
  if (length > limit - text.size()) return 0;
  try {
    text.append(bytes, length);
  } catch (const std::bad_alloc&) {
    return 0;
  }
  return length;
}

// A failure is a debug message, "WHAT(reason)", and does not stop the request.
void CurlRequest::Set(CURLoption option, auto value, const char* what) {
  if ((curl_easy_setopt)(handle_.get(), option, value) == CURLE_OK) return;
  DebugDetail("%s(%s)", what, std::strerror(errno));
}

CurlRequest::CurlRequest(const std::string& url, const HttpOptions& options)
    : header_{{}, kMaximumHeader},
      body_{{}, options.maximum_body},
      // The content type goes out with every request, GET included.
      header_list_(curl_slist_append(nullptr, "Content-Type: application/jose+json")),
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
  SetLimits(options);
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

void CurlRequest::SetLimits(const HttpOptions& options) {
  // Kept connections keep connections alone: a server that is dialled again is looked up again.
  if (options.keep_connections) {
    Set(CURLOPT_DNS_CACHE_TIMEOUT, 0L, "Failed to set dns cache timeout ");
  }
  if (!options.transfer_timeout) return;
  const std::chrono::milliseconds limit = *options.transfer_timeout;
  Set(CURLOPT_TIMEOUT_MS, static_cast<long>(limit.count()), "Failed to set timeout ");
  Set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(limit.count() / 4),
      "Failed to set connect timeout ");
  // Or a silent name server would be waited for, however long it takes.
  Set(CURLOPT_QUICK_EXIT, 1L, "Failed to set quick exit ");
}

void CurlRequest::SetPost(std::string text) {
  post_ = std::move(text);
  Set(CURLOPT_POSTFIELDS, post_.c_str(), "Failed to set postfields ");
}

void CurlRequest::RefuseRedirects() {
  Set(CURLOPT_FOLLOWLOCATION, 0L, "Failed to set follow location ");
}

HttpResponse CurlRequest::Perform(Connections& connections) {
  platform::ThrowIfInterrupted();
  if (connections.Run(handle_.get()) != CURLE_OK) {
    platform::ThrowIfInterrupted();
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

}  // namespace kova
