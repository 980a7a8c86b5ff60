// Which certificates are due.
#pragma once

#include <vector>

#include "base/renewal_settings.h"
#include "lifecycle/archived_certificate.h"

namespace kova {

struct DueCertificate {
  ArchivedCertificate certificate;
  bool to_renew = true;  // else only to deploy: an earlier run was killed before it had done that
};

// The certificates of the index that are due, in the order of their ids. What stands in the way of
// looking at one is logged, and that one left out. A move of files that an earlier run was killed
// in is finished first. With `renewalinfo` CAs are asked for their advice.
std::vector<DueCertificate> DueCertificates(const RenewalSettings& settings);

}  // namespace kova
