// The single renewal.
#pragma once

#include <string>

#include "base/settings.h"

namespace kova {

// Issues the certificate of an archive folder afresh through ACME v2, from its renewal record, and
// moves the new files over the old ones. 0 on success; 1 for a problem with the record (system log
// only); the error's code, its failure document printed, otherwise. Never throws.
int RenewFolder(const std::string& folder, const Settings& settings);

}  // namespace kova
