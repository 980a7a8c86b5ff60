#include "platform/rule_set.h"

#include <optional>
#include <vector>

namespace kova::platform {
namespace {

// A run that is killed must not leave ports open for ever.
constexpr int kLeaseSeconds = 3600;
constexpr int kPermanent = 0;

bool IsOwn(const Gateway& gateway, const std::string& set, const PortMapping& mapping) {
  return mapping.client == gateway.host_address && mapping.description == set;
}

bool Serves(const Gateway& gateway, const KOVA_PORTMAP_RULE& rule, const PortMapping& mapping) {
  return mapping.enabled && mapping.client == gateway.host_address &&
         mapping.internal_port == std::to_string(rule.device_port);
}

// Sets `granted` unless the gateway is unreachable.
int AddRule(const Gateway& gateway, const std::string& set, const KOVA_PORTMAP_RULE& rule,
            bool& granted) {
  std::optional<PortMapping> existing;
  if (gateway.Find(rule.router_port, existing) == kGatewayUnreachable) return kGatewayUnreachable;
  // Many routers would overwrite it without a word, and closing would then delete it.
  if (existing && !IsOwn(gateway, set, *existing)) {
    granted = Serves(gateway, rule, *existing);
    return 0;
  }
  int result = gateway.Add(rule.router_port, rule.device_port, set, kLeaseSeconds);
  if (result == upnp_error::kOnlyPermanentLeases) {
    result = gateway.Add(rule.router_port, rule.device_port, set, kPermanent);
  }
  if (result == kGatewayUnreachable) return result;
  granted = result == 0;
  return 0;
}

// Sets `refusal` when the mapping is kept.
int DeleteOwn(const Gateway& gateway, const std::string& set, const PortMapping& mapping,
              int& refusal) {
  if (!IsOwn(gateway, set, mapping)) return 0;
  const int result = gateway.Delete(mapping);
  if (result == kGatewayUnreachable) return result;
  // Its lease may have ended meanwhile.
  if (result != 0 && result != upnp_error::kNoSuchEntry) refusal = result;
  return 0;
}

// The same for all that the gateway lists.
int DeleteListed(const Gateway& gateway, const std::string& set, int& refusal) {
  // Listed first: deleting while walking would shift the indices.
  std::vector<PortMapping> mappings;
  if (const int result = gateway.List(mappings); result != 0) return result;
  for (const PortMapping& mapping : mappings) {
    if (const int result = DeleteOwn(gateway, set, mapping, refusal); result != 0) return result;
  }
  return 0;
}

int DeleteAt(const Gateway& gateway, const std::string& set, int port, int& refusal) {
  std::optional<PortMapping> mapping;
  if (const int result = gateway.Find(port, mapping); result != 0) return result;
  return mapping ? DeleteOwn(gateway, set, *mapping, refusal) : 0;
}

}  // namespace

int RemoveRuleSet(const Gateway& gateway, const std::string& set, const std::vector<int>& ports) {
  int refusal = 0;
  if (const int result = DeleteListed(gateway, set, refusal); result != 0) return result;
  if (refusal != 0) return refusal;
  for (const int port : ports) {
    if (const int result = DeleteAt(gateway, set, port, refusal); result != 0) return result;
  }
  return refusal;
}

int ReplaceRuleSet(const Gateway& gateway, const std::string& set,
                   std::span<const KOVA_PORTMAP_RULE> rules,
                   std::span<KOVA_RULE_SET_RESULT> results) {
  std::vector<int> ports;
  for (const KOVA_PORTMAP_RULE& rule : rules) ports.push_back(rule.router_port);
  if (RemoveRuleSet(gateway, set, ports) == kGatewayUnreachable) return kGatewayUnreachable;
  for (size_t i = 0; i < rules.size(); ++i) {
    bool granted = false;
    if (const int result = AddRule(gateway, set, rules[i], granted); result != 0) return result;
    results[i] = {rules[i].router_port, static_cast<unsigned char>(granted ? 1 : 0)};
  }
  return 0;
}

}  // namespace kova::platform
