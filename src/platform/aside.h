// Questions to the C library that wait as long as they like and heed no signal (its look-ups of
// names), asked by a child process, which can be ended.
#pragma once

#include <functional>

namespace kova::platform {

// What `question` answers. False also when the run is to end (platform/signals.h), which is not
// waited for any longer. What the question changes in memory is not seen afterwards.
[[nodiscard]] bool AskAside(const std::function<bool()>& question);

}  // namespace kova::platform
