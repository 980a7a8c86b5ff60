// Port forwarding rules, and the host's own record of them,
// {"SET": [{"device_port": D, "router_port": R}]}.
#pragma once

#include <span>
#include <string>
#include <vector>

struct KOVA_PORTMAP_RULE {
  int router_port;
  int reserved;  // always 0
  int device_port;
};

struct KOVA_RULE_SET_RESULT {
  int port;               // router port of the rule
  unsigned char success;  // non-zero: the router confirmed it
};

namespace kova::platform {

inline constexpr char kPortmapRecordPath[] = "/usr/kova/etc/portmap.json";

// Puts the set into the record, or takes it out when there are no rules, under a lock on the
// record. 0, or an errno: EINVAL when the record is not a JSON object.
[[nodiscard]] int StoreRuleSet(const std::string& name, std::span<const KOVA_PORTMAP_RULE> rules);

// The router's ports in the recorded set; none when there is no such record.
std::vector<int> RecordedPorts(const std::string& name);

}  // namespace kova::platform
