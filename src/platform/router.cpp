#include "platform/router.h"

#include "platform/confined.h"
#include "platform/device.h"
#include "platform/rule_set.h"

namespace kova::platform {
namespace {

using Results = std::vector<KOVA_RULE_SET_RESULT>;
using Operation = std::function<int(const Gateway&, Results&)>;

// ---- in the child

RouterAnswer Found() {
  RouterAnswer answer;
  answer.gateway = Gateway::Discover();
  if (answer.gateway) answer.result = 0;
  return answer;
}

void Attempt(const Operation& operation, size_t rules, RouterAnswer& answer) {
  Results results(rules);
  answer.result = operation(*answer.gateway, results);
  answer.granted.clear();
  for (const KOVA_RULE_SET_RESULT& result : results) answer.granted.push_back(result.success != 0);
}

RouterAnswer Perform(std::optional<Gateway> known, size_t rules, const Operation& operation) {
  RouterAnswer answer;
  answer.granted.resize(rules);
  answer.gateway = std::move(known);
  if (answer.gateway) Attempt(operation, rules, answer);
  if (answer.result != kGatewayUnreachable) return answer;
  answer.gateway = Gateway::Discover();
  if (answer.gateway) Attempt(operation, rules, answer);
  return answer;
}

}  // namespace

// ---- here

RouterAnswer Router::Ask(std::chrono::milliseconds time, size_t rules, const Work& work) {
  RouterAnswer answer;
  answer.granted.resize(rules);
  const bool hopeless = searched_ && !gateway_;
  searched_ = true;
  if (hopeless || !RouterUsesUpnp()) return answer;
  const auto text =
      RunConfined({time, kLongestRouterAnswer}, [&] { return RouterAnswerText(work(gateway_)); });
  if (const auto told = text ? ReadRouterAnswer(*text, rules) : std::nullopt) answer = *told;
  gateway_ = answer.gateway;
  return answer;
}

bool Router::Search() {
  searched_ = false;
  gateway_.reset();
  return Ask(times_.search, 0, [](const auto&) { return Found(); }).result == 0 && gateway_;
}

int Router::Remove(const std::string& set, const std::vector<int>& ports) {
  const Operation remove = [&](const Gateway& gateway, Results&) {
    return RemoveRuleSet(gateway, set, ports);
  };
  return Ask(times_.rule_set, 0, [&](auto known) { return Perform(known, 0, remove); }).result;
}

int Router::Replace(const std::string& set, std::span<const KOVA_PORTMAP_RULE> rules,
                    std::span<KOVA_RULE_SET_RESULT> results) {
  const Operation replace = [&](const Gateway& gateway, Results& found) {
    return ReplaceRuleSet(gateway, set, rules, found);
  };
  const RouterAnswer answer = Ask(times_.rule_set, rules.size(), [&](auto known) {
    return Perform(known, rules.size(), replace);
  });
  for (size_t i = 0; i < rules.size(); ++i) {
    results[i] = {rules[i].router_port, static_cast<unsigned char>(answer.granted[i] ? 1 : 0)};
  }
  return answer.result;
}

}  // namespace kova::platform
