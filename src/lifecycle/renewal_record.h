// The renewal record (renew.json) of a certificate folder, as the flows read it.
#pragma once

#include <optional>
#include <string>

#include "acme/renewal_record.h"

namespace kova {

// The record of the folder, whose file exists. None, with a message, when it is not JSON, lacks one
// of the four members, or is of another version than 1 and 2.
std::optional<RenewalRecord> RecordOrMessage(const std::string& folder);

// Why nothing can be done with the folder's record, in words and without a message; empty when it
// is usable. To renew with it, it has to name a host as well.
std::string WhyUnusable(const std::string& folder);
std::string WhyNotRenewable(const std::string& folder);

}  // namespace kova
