// Revocation.
#pragma once

#include "base/settings.h"
#include "lifecycle/archived_certificate.h"

namespace kova {

// Revokes the certificate with the account and protocol version of its renewal record. Problems
// with the record are only logged. What the clients throw is logged and thrown on.
void Revoke(const ArchivedCertificate& certificate, const Settings& settings);

}  // namespace kova
