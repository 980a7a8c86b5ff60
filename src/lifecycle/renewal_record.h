// The renewal record (renew.json) of a certificate folder, as the drivers read it.
#pragma once

#include <optional>
#include <string>

#include "acme/renewal_record.h"

namespace kova {

// The record of the folder, whose file exists. None, with a message, when it is not JSON or lacks
// one of the four members.
std::optional<RenewalRecord> RecordOrMessage(const std::string& folder);

// Says that the record's version is neither 1 nor 2.
void LogWrongVersion(const std::string& folder);

}  // namespace kova
