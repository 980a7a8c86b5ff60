// The host's own record of its port forwarding, {"SET": [{"device_port": D, "router_port": R}]}.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "platform/portmap.h"

namespace kova::platform {

// Puts the set into the record, or takes it out when there are no rules, under a lock on the
// record. 0, or an errno: EINVAL when the record is not a JSON object.
[[nodiscard]] int StoreRuleSet(const std::string& name, std::span<const KOVA_PORTMAP_RULE> rules);

// The router's ports in the recorded set; none when there is no such record.
std::vector<int> RecordedPorts(const std::string& name);

}  // namespace kova::platform
