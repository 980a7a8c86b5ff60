// Takes the place of every wait for the life of the object: nothing sleeps, every duration is kept.
#pragma once

#include <chrono>
#include <utility>
#include <vector>

#include "platform/clock.h"

namespace kova::test {

class SleepCounter {
 public:
  SleepCounter()
      : previous_(platform::SetSleeper(
            [this](std::chrono::milliseconds duration) { durations_.push_back(duration); })) {}
  ~SleepCounter() { platform::SetSleeper(std::move(previous_)); }
  SleepCounter(const SleepCounter&) = delete;
  SleepCounter& operator=(const SleepCounter&) = delete;

  // Every wait so far, oldest first.
  [[nodiscard]] const std::vector<std::chrono::milliseconds>& Durations() const {
    return durations_;
  }

  [[nodiscard]] std::chrono::milliseconds Total() const {
    std::chrono::milliseconds total{0};
    for (const auto duration : durations_) total += duration;
    return total;
  }

  void Clear() { durations_.clear(); }

 private:
  std::vector<std::chrono::milliseconds> durations_;
  platform::Sleeper previous_;
};

}  // namespace kova::test
