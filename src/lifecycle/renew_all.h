// Renewing what is due, and one certificate as that does it.
#pragma once

#include <functional>
#include <optional>

#include "base/renewal_settings.h"
#include "base/sl_error.h"
#include "lifecycle/due.h"
#include "lifecycle/renew.h"
#include "lifecycle/renewal_run.h"

namespace kova {

using FailureObserver = std::function<void(const SLError&)>;

// Renews the certificates that are due, deploys each to its services whatever came of that, and
// restarts the web front-end once when one of them serves it. `on_failure` hears each failure as it
// happens; none stops the next certificate.
void RenewAll(const RenewalSettings& settings, const FailureObserver& on_failure);

struct OneRenewal {
  Prospect found = Prospect::kRenewed;       // what it was before; this one when forced
  RenewalOutcome renewal;                    // of one that is due
  std::optional<Redeployment> redeployment;  // none when there was nothing to hand on
  bool web_frontend_failed = false;          // it was to be restarted
};

// Renews the certificate of the archive when it is due or `force` is set, and deploys it to its
// services whatever came of that, also when only an earlier run left them without its files; the
// web front-end is restarted when the certificate serves it. Its record has to be usable
// (renewal_record.h). Never throws.
[[nodiscard]] OneRenewal RenewOne(const ArchivedCertificate& certificate,
                                  const RenewalSettings& settings, bool force);

}  // namespace kova
