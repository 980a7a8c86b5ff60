#include <array>

#include "base/debug.h"
#include "challenge/challenge.h"
#include "platform/portmap.h"
#include "platform/signals.h"

namespace kova {
namespace {

constexpr char kRuleSet[] = "Letsencrypt";  // closing removes exactly what opening made
constexpr int kHttpPort = 80;
constexpr int kHttpsPort = 443;

bool Forward() {
  if (const int failure = KLibKovaPortMapRouterDetect(); failure != 0) {
    DebugStep("Failed to port map router detect. [%d]", failure);
    return false;
  }
  std::array<KOVA_RULE_SET_RESULT, 2> results{};
  const std::array<KOVA_PORTMAP_RULE, 2> rules{
      {{kHttpPort, 0, kHttpPort}, {kHttpsPort, 0, kHttpsPort}}};
  const int failure =
      KLibKovaPortMapRulesSet(results.data(), results.size(), kRuleSet, rules.data(), rules.size());
  if (failure != 0) {
    DebugStep("Failed to set port map rules. [%d]", failure);
    return false;
  }
  // Whether port 443 was granted is not asked, on purpose: validation needs port 80 alone.
  if (results[0].success == 0 || results[0].port != kHttpPort || results[1].port != kHttpsPort) {
    DebugStep("Incorrect port map rules result");
    return false;
  }
  return true;
}

}  // namespace

bool OpenRouterPorts() {
  if (Forward()) return true;
  DebugStep("failed to open port 80.");
  return false;
}

void CloseRouterPorts() {
  const platform::CleanupScope cleanup;
  if (KLibKovaPortMapRulesSet(nullptr, 0, kRuleSet, nullptr, 0) >= 0) return;
  // At least the host's own record must not hold the set any longer.
  static_cast<void>(KLibKovaPortMapRulesConfigSet(kRuleSet, nullptr, 0));
}

}  // namespace kova
