// Waiting. Every wait of the protocols goes through SleepFor, so that tests can count them.
#pragma once

#include <chrono>
#include <functional>

namespace kova::platform {

using Sleeper = std::function<void(std::chrono::seconds)>;

// Blocks for `duration`, signals notwithstanding.
void SleepFor(std::chrono::seconds duration);

// Replaces what SleepFor does and returns what it did before; an empty function restores sleep(3).
Sleeper SetSleeper(Sleeper sleeper);

}  // namespace kova::platform
