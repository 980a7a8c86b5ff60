#include "platform/clock.h"

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace kova::platform {
namespace {

Sleeper& Replacement() {
  static Sleeper replacement;
  return replacement;
}

}  // namespace

void SleepFor(std::chrono::seconds duration) {
  if (Replacement()) return Replacement()(duration);
  using Clock = std::chrono::steady_clock;
  const auto deadline = Clock::now() + duration;
  // One sleep(3) of the whole duration; it is repeated only after a signal, and then not for what
  // it returns, which is cut to whole seconds.
  while (duration.count() > 0) {
    errno = 0;
    const unsigned left = sleep(static_cast<unsigned>(duration.count()));
    if (left == 0 && errno != EINTR) return;
    duration = std::chrono::ceil<std::chrono::seconds>(deadline - Clock::now());
  }
}

Sleeper SetSleeper(Sleeper sleeper) { return std::exchange(Replacement(), std::move(sleeper)); }

}  // namespace kova::platform
