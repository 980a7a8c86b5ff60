// The connections of transfers: libcurl's multi handle.
#pragma once

#include <curl/curl.h>

#include <memory>

namespace kova {

template <auto F>
struct CurlFree {
  void operator()(auto* object) const noexcept { F(object); }
};

class Connections {
 public:
  Connections();
  ~Connections();
  Connections(const Connections&) = delete;
  Connections& operator=(const Connections&) = delete;

  // Runs one transfer to its end, on a connection that an earlier one left open where there is one
  // to that server. `handle` is the caller's again afterwards; it may be null, which fails.
  [[nodiscard]] CURLcode Run(CURL* handle);

 private:
  [[nodiscard]] CURLcode Drive();

  std::unique_ptr<CURLM, CurlFree<curl_multi_cleanup>> multi_;
};

}  // namespace kova
