#include "lifecycle/lifetime.h"

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
  const bool is_short = lifetime.end - lifetime.begin < kShortLife;
  return LeftIsUnder(lifetime, is_short ? 2 : 3, now);
}

DueRule DueRule::Of(const RenewalSettings& settings) {
  if (settings.renew_lifetime) return {true, settings.renew_before_expire_days};
  return {false, settings.renew_before_expire_days.value_or(kDefaultLeadDays)};
}

bool IsDue(const Lifetime& lifetime, const DueRule& rule, std::int64_t now) {
  if (rule.by_lifetime && IsDue(lifetime, now)) return true;
  return rule.lead_days && lifetime.end <= now + *rule.lead_days * kDay;
}

bool IsNearlyOver(const Lifetime& lifetime, std::int64_t now) {
  return LeftIsUnder(lifetime, 10, now);
}

}  // namespace kova
