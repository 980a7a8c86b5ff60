#include "platform/clock.h"

#include <poll.h>

#include <ctime>
#include <utility>

#include "platform/signals.h"

namespace kova::platform {
namespace {

Sleeper& Replacement() {
  static Sleeper replacement;
  return replacement;
}

timespec InTimespec(std::chrono::nanoseconds time) {
  const auto seconds = std::chrono::floor<std::chrono::seconds>(time);
  return {static_cast<time_t>(seconds.count()), static_cast<long>((time - seconds).count())};
}

// One ppoll(2) of the whole duration; it is repeated for the rest after a signal that ends nothing.
void Block(std::chrono::milliseconds duration) {
  using Clock = std::chrono::steady_clock;
  const auto deadline = Clock::now() + duration;
  std::chrono::nanoseconds left = duration;
  while (left.count() > 0) {
    pollfd wake_up{InterruptionFd(), POLLIN, 0};
    const timespec time = InTimespec(left);
    if (ppoll(&wake_up, 1, &time, nullptr) >= 0) return;
    left = deadline - Clock::now();
  }
}

}  // namespace

void SleepFor(std::chrono::milliseconds duration) {
  ThrowIfInterrupted();
  Replacement() ? Replacement()(duration) : Block(duration);
  ThrowIfInterrupted();
}

Sleeper SetSleeper(Sleeper sleeper) { return std::exchange(Replacement(), std::move(sleeper)); }

}  // namespace kova::platform
