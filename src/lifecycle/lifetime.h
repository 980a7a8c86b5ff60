// When a certificate's own lifetime makes it due.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "base/renewal_settings.h"
#include "crypto/certificate.h"

namespace kova {

// Seconds since the epoch.
struct Lifetime {
  std::int64_t begin = 0;
  std::int64_t end = 0;
};

// None, with a message that names its file, when the certificate has no readable times, or none
// could be read out of that file in the first place.
std::optional<Lifetime> LifetimeOf(const std::optional<Certificate>& certificate,
                                   const std::string& path);

// True when less than a third of it is left, or less than half of one under ten days.
[[nodiscard]] bool IsDue(const Lifetime& lifetime, std::int64_t now);

// When a certificate is due: what either part finds due is.
struct DueRule {
  // The days count beside the lifetime only when they are set.
  static DueRule Of(const RenewalSettings& settings);

  bool by_lifetime = false;
  std::optional<int> lead_days;  // so many days before its end
};

[[nodiscard]] bool IsDue(const Lifetime& lifetime, const DueRule& rule, std::int64_t now);

// The first moment at which it is due.
[[nodiscard]] std::int64_t DueFrom(const Lifetime& lifetime, const DueRule& rule);

// True when less than a tenth of it is left.
[[nodiscard]] bool IsNearlyOver(const Lifetime& lifetime, std::int64_t now);

}  // namespace kova
