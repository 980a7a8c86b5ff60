#include "lifecycle/lifetime.h"

#include <algorithm>

#include "base/log.h"

namespace kova {
namespace {

constexpr char kTag[] = "kova-letsencrypt";
constexpr std::int64_t kDay = 86400;
constexpr std::int64_t kShortLife = 10 * kDay;

// Whether less than one part in `parts` is left.
bool LeftIsUnder(const Lifetime& lifetime, std::int64_t parts, std::int64_t now) {
  return (lifetime.end - now) * parts < lifetime.end - lifetime.begin;
}

// One of them is left when it is due.
std::int64_t PartsOf(const Lifetime& lifetime) {
  return lifetime.end - lifetime.begin < kShortLife ? 2 : 3;
}

}  // namespace

std::optional<Lifetime> LifetimeOf(const std::optional<Certificate>& certificate,
                                   const std::string& path) {
  if (certificate && certificate->NotBefore() && certificate->NotAfter()) {
    return Lifetime{*certificate->NotBefore(), *certificate->NotAfter()};
  }
  LogError(kTag, "Failed to read the lifetime of %s", path.c_str());
  return std::nullopt;
}

bool IsDue(const Lifetime& lifetime, std::int64_t now) {
  return LeftIsUnder(lifetime, PartsOf(lifetime), now);
}

DueRule DueRule::Of(const RenewalSettings& settings) {
  if (settings.renew_lifetime) return {true, settings.renew_before_expire_days};
  return {false, settings.renew_before_expire_days.value_or(kDefaultLeadDays)};
}

bool IsDue(const Lifetime& lifetime, const DueRule& rule, std::int64_t now) {
  if (rule.by_lifetime && IsDue(lifetime, now)) return true;
  return rule.lead_days && lifetime.end <= now + *rule.lead_days * kDay;
}

std::int64_t DueFrom(const Lifetime& lifetime, const DueRule& rule) {
  const std::int64_t parts = PartsOf(lifetime);
  const std::int64_t part = (lifetime.end - lifetime.begin + parts - 1) / parts;  // rounded up
  std::int64_t from = lifetime.end;
  if (rule.by_lifetime) from = std::min(from, lifetime.end - part + 1);
  if (rule.lead_days) from = std::min(from, lifetime.end - *rule.lead_days * kDay);
  return from;
}

bool IsNearlyOver(const Lifetime& lifetime, std::int64_t now) {
  return LeftIsUnder(lifetime, 10, now);
}

}  // namespace kova
