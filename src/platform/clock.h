// Waiting. Every wait of the protocols goes through SleepFor, so that tests can count them and a
// signal that ends the run (platform/signals.h) cuts them short.
#pragma once

#include <chrono>
#include <functional>

namespace kova::platform {

using Sleeper = std::function<void(std::chrono::milliseconds)>;

// Blocks for `duration`, other signals notwithstanding. Throws Interruption when the run is to end,
// before, during or after it.
void SleepFor(std::chrono::milliseconds duration);

// Replaces the blocking of SleepFor and returns what it was before; an empty function restores the
// real one, ppoll(2).
Sleeper SetSleeper(Sleeper sleeper);

}  // namespace kova::platform
