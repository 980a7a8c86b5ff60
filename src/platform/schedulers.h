// What starts the renewal job on this host, judged without asking an init system.
#pragma once

#include <string>

namespace kova::platform {

// A daemon that reads /etc/cron.d: cron, its relatives, or systemd with a generator of timers.
enum class CronDaemon { kMissing, kStopped, kRunning };

// Running is one whose process sees our own /etc/cron.d, which that of a container does not. What a
// process sees is for root to ask.
[[nodiscard]] CronDaemon LookForCronDaemon();

// True when systemd is the init system.
[[nodiscard]] bool RunsSystemd();

// True when the timer of that name (without ".timer") is enabled, whether systemd runs or not.
[[nodiscard]] bool IsTimerEnabled(const std::string& name);

}  // namespace kova::platform
