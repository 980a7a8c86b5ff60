// The vendor's dynamic-DNS zone as seen from this host, and names in general.
#pragma once

#include <string>

namespace kova {

// True when the host's own DDNS name occurs, ignoring case, anywhere in `name`. A substring test,
// not a suffix test: deliberate. False when the host has no DDNS name.
bool IsKovaDdnsHost(const std::string& name);

// Nothing but the characters of host names, a wildcard's star included.
bool IsHostName(const std::string& name);

// True when the zone's own name server shows a TXT record of "_acme-challenge." + domain that
// holds `expected`. Uses the process-wide resolver state and restores it.
bool CheckTxtRecord(const std::string& domain, const std::string& expected);

}  // namespace kova
