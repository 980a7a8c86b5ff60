// The repair of a certificate whose folder is incomplete: a self-signed set, marked as one.
#pragma once

#include <string>

#include "archive/certificate_lock.h"
#include "archive/integrity.h"

namespace kova::cert_archive {

// Fills the certificate's folder with a default set and marks it broken. `reason` is why it was
// found unusable, and is told with a recovery. A set that a killed recovery completed is marked
// alone. What fails is logged.
Verdict Recover(const CertificateLock& certificate, const Status& reason);

// True when a recovery of the certificate was begun and is not known to have ended: its files may
// be complete, and not marked as what they are. `id` must be a plain name.
[[nodiscard]] bool IsRecoveryNoted(const std::string& id);

}  // namespace kova::cert_archive
