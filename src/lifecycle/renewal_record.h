// The renewal record (renew.json) of a certificate folder, as the flows read it.
#pragma once

#include <optional>
#include <string>

#include "acme/renewal_record.h"

namespace kova {

// The record of the folder, whose file exists. None, with a message, when it is not JSON, lacks one
// of the four members, or is of another version than 1 and 2.
std::optional<RenewalRecord> RecordOrMessage(const std::string& folder);

}  // namespace kova
