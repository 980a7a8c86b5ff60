// Which certificates are due.
#pragma once

#include <vector>

#include "base/settings.h"
#include "lifecycle/archived_certificate.h"

namespace kova {

// The certificates of the index that are due, in the order of their ids. What stands in the way of
// looking at one is logged, and that one left out.
std::vector<ArchivedCertificate> DueCertificates(const Settings& settings);

}  // namespace kova
