// How long to wait for a CA that is still at work, and how often to look: each pause is as long as
// its latest reply asks (Retry-After, 1 to 10 s), else a short one that doubles each time up to 2
// s.
#pragma once

#include <chrono>

#include "net/client_network.h"

namespace kova {

class Patience {
 public:
  // `timeout` is the message of the error at the end; it outlives the object.
  Patience(std::chrono::milliseconds first_pause, const char* timeout)
      : timeout_(timeout), next_(first_pause) {}

  // Waits before the next look. Throws SLError 102 with the timeout's message when 60 s in all
  // would end during the pause; time on the wire counts as well as the pauses.
  void PauseAfter(const HttpResponse& reply);

 private:
  using Clock = std::chrono::steady_clock;

  std::chrono::milliseconds PauseOf(const HttpResponse& reply);

  const char* timeout_;
  std::chrono::milliseconds next_;
  std::chrono::milliseconds paused_{0};
  Clock::time_point start_ = Clock::now();
};

}  // namespace kova
