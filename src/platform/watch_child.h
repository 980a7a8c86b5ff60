// Waiting for a child and for what it writes, within limits of time and size.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>

#include "platform/fd.h"

namespace kova::platform {

struct ChildLimits {
  std::chrono::milliseconds time;
  size_t output;  // bytes
};
inline constexpr auto kNoTimeLimit = std::chrono::milliseconds::max();

enum class ChildEnd {
  kExited,       // by itself, whatever its status
  kTooLate,      // still runs at the end of its time
  kTooMuch,      // wrote more than it may
  kInterrupted,  // still runs, and the run is to end (platform/signals.h)
};

// A pipe whose ends are close-on-exec and beyond the standard descriptors; reading never blocks.
struct Pipe {
  Fd reading;
  Fd writing;
};
[[nodiscard]] int MakePipe(Pipe& result);  // 0, or an errno

// Collects what the child writes to the other end of `reading` until it has ended, also when
// something that it left running still holds that end, or until a limit; -1: there is no such end.
// Whoever calls it ends and reaps the child (spawn.h). In a CleanupScope the time is what is left
// of that when it is less.
[[nodiscard]] ChildEnd WatchChild(pid_t child, int reading, const ChildLimits& limits,
                                  std::string& output);

// As above for a child that writes nothing to us, without a limit of time. True when it has ended.
// A wait that begins after the signal is let go on until taking back has to be over.
[[nodiscard]] bool AwaitExit(pid_t child);

}  // namespace kova::platform
