// When a certificate's own lifetime makes it due.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace kova {

// Seconds since the epoch.
struct Lifetime {
  std::int64_t begin = 0;
  std::int64_t end = 0;
};

// None, with a message, when the file holds no certificate with readable times.
std::optional<Lifetime> LifetimeOf(const std::string& certificate_path);

// True when less than a third of it is left, or less than half of one under ten days.
[[nodiscard]] bool IsDue(const Lifetime& lifetime, std::int64_t now);

// True when less than a tenth of it is left.
[[nodiscard]] bool IsNearlyOver(const Lifetime& lifetime, std::int64_t now);

}  // namespace kova
