// The domain list of an issuance.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace kova {

// Parses a ";"-separated list and announces the issuance at debug level 1: server, e-mail and each
// domain, which is then given to `check` (may throw). Throws SLError 106 when no domain is left.
std::vector<std::string> AnnounceDomains(const std::string& list, const std::string& server,
                                         const std::string& email,
                                         const std::function<void(const std::string&)>& check);

}  // namespace kova
