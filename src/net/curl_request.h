// One request in flight.
#pragma once

#include <curl/curl.h>

#include <cstddef>
#include <memory>
#include <string>

#include "net/client_network.h"
#include "net/connections.h"

namespace kova {

// What libcurl is given lives in this object and outlives its handle.
class CurlRequest {
 public:
  CurlRequest(const std::string& url, const HttpOptions& options);
  CurlRequest(const CurlRequest&) = delete;
  CurlRequest& operator=(const CurlRequest&) = delete;

  void SetPost(std::string text);
  void RefuseRedirects();
  // Throws SLError 100 when the transfer failed.
  [[nodiscard]] HttpResponse Perform(Connections& connections);

 private:
  // Where received bytes go. A server that sends more than `limit` fails the transfer.
  struct Sink {
    std::string text;
    size_t limit;
  };
  static size_t Receive(char* bytes, size_t size, size_t count, void* sink) noexcept;

  void Set(CURLoption option, auto value, const char* what);
  void SetUserAgent();
  void SetLimits(const HttpOptions& options);

  SigpipeIgnored sigpipe_;
  Sink header_;
  Sink body_;
  std::string post_;
  std::unique_ptr<curl_slist, CurlFree<curl_slist_free_all>> header_list_;
  std::unique_ptr<CURL, CurlFree<curl_easy_cleanup>> handle_;  // last, so that it goes first
};

}  // namespace kova
