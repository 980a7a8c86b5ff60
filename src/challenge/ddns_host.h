// The vendor's dynamic-DNS zone as seen from this host.
#pragma once

#include <string>

namespace kova {

// True when the host's own DDNS name occurs, ignoring case, anywhere in `name`. A substring test,
// not a suffix test: deliberate. False when the host has no DDNS name.
bool IsKovaDdnsHost(const std::string& name);

}  // namespace kova
