// The connections of transfers: libcurl's multi handle.
#pragma once

#include <curl/curl.h>

#include <csignal>
#include <memory>

namespace kova {

template <auto F>
struct CurlFree {
  void operator()(auto* object) const noexcept { F(object); }
};

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
