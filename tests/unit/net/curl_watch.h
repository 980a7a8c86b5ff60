// Sees, and can disturb, what the product asks of libcurl.
#pragma once

#include <curl/curl.h>

#include <functional>
#include <set>
#include <string>
#include <vector>

namespace kova::test {

// What a transfer delivers to, as the product set it: CURLOPT_HEADERFUNCTION and -DATA, or
// CURLOPT_WRITEFUNCTION and -DATA.
struct CurlReceiver {
  curl_write_callback function = nullptr;
  void* data = nullptr;

  // True when all of the bytes were taken.
  [[nodiscard]] bool Take(std::string bytes) const {
    return function(bytes.data(), 1, bytes.size(), data) == bytes.size();
  }
};

// Everything since the object was made; one at a time.
class CurlWatch {
 public:
  CurlWatch();
  ~CurlWatch();
  CurlWatch(const CurlWatch&) = delete;
  CurlWatch& operator=(const CurlWatch&) = delete;

  // Option settings and ends of life in the order of the calls: "URL=http://...", "NOSIGNAL=1",
  // "WRITEDATA" (pointers without value), "cleanup", "free list", "global init 3",
  // "global cleanup".
  [[nodiscard]] std::vector<std::string> Calls() const;

  // How often curl was asked to go on with the transfers.
  [[nodiscard]] int Steps() const;

  // Makes curl_easy_setopt refuse these options, or all of them.
  void Refuse(std::set<CURLoption> options);
  void RefuseAll();

  // Makes curl_easy_init give no handle.
  void GiveNoHandle();

  // Replaces the transfers.
  using Perform = std::function<CURLcode(const CurlReceiver& header, const CurlReceiver& body)>;
  void PerformBy(Perform perform);
};

}  // namespace kova::test
