// Renewing what is due.
#pragma once

#include <functional>

#include "base/renewal_settings.h"
#include "base/sl_error.h"

namespace kova {

using FailureObserver = std::function<void(const SLError&)>;

// Renews the certificates that are due, deploys each to its services whatever came of that, and
// restarts the web front-end once when one of them serves it. `on_failure` hears each failure as it
// happens; none stops the next certificate.
void RenewAll(const RenewalSettings& settings, const FailureObserver& on_failure);

}  // namespace kova
