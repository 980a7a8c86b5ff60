// One named rule set on a UPnP gateway.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "platform/portmap_record.h"
#include "platform/upnp.h"

namespace kova::platform {

// Deletes the mappings whose description is the set's name and whose client is this host: those
// that the gateway lists, and those of `ports`, since some gateways list nothing. 0,
// kGatewayUnreachable, or the last UPnP error with which one of them was kept.
[[nodiscard]] int RemoveRuleSet(const Gateway& gateway, const std::string& set,
                                const std::vector<int>& ports);

// Removes the set (the rules' ports are its `ports`) and adds one mapping per rule. results[i]
// belongs to rules[i]. 0, or kGatewayUnreachable; a refused rule shows in its result alone.
[[nodiscard]] int ReplaceRuleSet(const Gateway& gateway, const std::string& set,
                                 std::span<const KOVA_PORTMAP_RULE> rules,
                                 std::span<KOVA_RULE_SET_RESULT> results);

}  // namespace kova::platform
