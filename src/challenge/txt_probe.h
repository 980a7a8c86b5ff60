// Readiness of a dns-01 record, asked of the vendor zone's own name server.
#pragma once

#include <string>

namespace kova {

// True when a TXT record of "_acme-challenge." + domain holds `expected`. Uses the process-wide
// resolver state and restores it.
bool CheckTxtRecord(const std::string& domain, const std::string& expected);

}  // namespace kova
