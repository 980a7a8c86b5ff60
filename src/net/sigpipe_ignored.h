// A server that hangs up while we write must cost a request, not the process: with
// CURLOPT_NOSIGNAL libcurl leaves SIGPIPE alone.
#pragma once

#include <csignal>

namespace kova {

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

}  // namespace kova
