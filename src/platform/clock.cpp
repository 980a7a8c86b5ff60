#include "platform/clock.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <utility>

namespace kova::platform {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using Clock = std::chrono::steady_clock;

Sleeper& Replacement() {
  static Sleeper replacement;
  return replacement;
}

// One sleep(3) of the whole duration; it is repeated only after a signal, and then not for what it
// returns, which is cut to whole seconds.
void SleepSeconds(seconds duration) {
  const auto deadline = Clock::now() + duration;
  while (duration.count() > 0) {
    errno = 0;
    const unsigned left = sleep(static_cast<unsigned>(duration.count()));
    if (left == 0 && errno != EINTR) return;
    duration = std::chrono::ceil<seconds>(deadline - Clock::now());
  }
}

void SleepMilliseconds(milliseconds duration) {
  const seconds whole = std::chrono::floor<seconds>(duration);
  timespec rest{whole.count(), std::chrono::nanoseconds(duration - whole).count()};
  while (nanosleep(&rest, &rest) != 0 && errno == EINTR) {
  }
}

}  // namespace

void SleepFor(milliseconds duration) {
  if (Replacement()) return Replacement()(duration);
  const seconds whole = std::chrono::floor<seconds>(duration);
  if (duration == whole) return SleepSeconds(whole);
  SleepMilliseconds(std::max(duration, milliseconds(0)));
}

Sleeper SetSleeper(Sleeper sleeper) { return std::exchange(Replacement(), std::move(sleeper)); }

}  // namespace kova::platform
