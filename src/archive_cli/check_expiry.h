// `kova-archive check --expiry DAYS`, for monitoring: what needs attention, or will soon.
// Nothing is changed: an incomplete certificate is told, not repaired.
#pragma once

#include <cstdint>
#include <string>

#include "archive_cli/command.h"

namespace kova::archive_cli {

// One line per finding; the run fails when there is one.
Reply CheckExpiry(const Arguments& arguments);

// What is to be said of the certificate in that folder at that moment; empty when nothing.
std::string ExpiryFinding(const std::string& folder, int days, std::int64_t now);

}  // namespace kova::archive_cli
