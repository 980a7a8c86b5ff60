// Waiting. Every wait of the protocols goes through SleepFor, so that tests can count them.
#pragma once

#include <chrono>
#include <functional>

namespace kova::platform {

using Sleeper = std::function<void(std::chrono::milliseconds)>;

// Blocks for `duration`, signals notwithstanding.
void SleepFor(std::chrono::milliseconds duration);

// Replaces what SleepFor does and returns what it did before; an empty function restores the real
// waits.
Sleeper SetSleeper(Sleeper sleeper);

}  // namespace kova::platform
