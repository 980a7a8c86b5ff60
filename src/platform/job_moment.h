// When a host's renewal job runs: stable on one host, spread over a fleet.
#pragma once

#include <cstdint>
#include <string>

namespace kova::platform {

struct JobMoment {
  uint64_t minute;   // 0 to 59
  uint64_t hour;     // 0 to 23
  uint64_t weekday;  // 0 (Sunday) to 6
};

// The moment of that job on the host of that id.
JobMoment MomentOfJob(const std::string& host, const std::string& job);

}  // namespace kova::platform
