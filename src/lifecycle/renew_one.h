// What a run of renew-all does to one certificate.
#pragma once

#include <optional>

#include "base/renewal_settings.h"
#include "lifecycle/due.h"
#include "lifecycle/renew.h"
#include "lifecycle/renewal_run.h"

namespace kova {

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
