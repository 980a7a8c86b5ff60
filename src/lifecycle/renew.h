// The single renewal.
#pragma once

#include <optional>

#include "base/renewal_settings.h"
#include "base/sl_error.h"
#include "lifecycle/archived_certificate.h"

namespace kova {

struct RenewalOutcome {
  bool renewed = false;
  std::optional<SLError> failure;  // none for a problem with the record: the log alone tells that
};

// Issues the certificate afresh through ACME v2, from its renewal record, and moves the new files
// over the old ones. Never throws.
[[nodiscard]] RenewalOutcome Renew(const ArchivedCertificate& certificate,
                                   const RenewalSettings& settings);

// The same for a caller that deploys the certificate afterwards: until it calls ForgetRenewal
// (renewal_files.h) the certificate counts as one that its services may not have yet.
[[nodiscard]] RenewalOutcome RenewToDeploy(const ArchivedCertificate& certificate,
                                           const RenewalSettings& settings);

}  // namespace kova
