// The issuing sequence of ACME v2.
#pragma once

#include <string>

#include "base/settings.h"

namespace kova {

// Obtains a certificate for the ";"-separated `domains` and returns the archive folder that holds
// it. Tries the challenge types in turn. Throws SLError; a domain of a single star throws
// std::out_of_range.
std::string IssueWithAcmeV2(const std::string& server, const std::string& domains,
                            const std::string& email, const std::string& certificate_id,
                            const Settings& settings);

}  // namespace kova
