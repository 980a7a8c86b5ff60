// Revocation.
#pragma once

#include "acme_v2/issue.h"
#include "base/settings.h"
#include "lifecycle/archived_certificate.h"

namespace kova {

// Revokes the certificate with the account and protocol version of its renewal record; version 2
// alone heeds the options. Problems with the record are only logged. What the clients throw is
// logged and thrown on.
void Revoke(const ArchivedCertificate& certificate, const Settings& settings,
            const RevokeOptions& options = {});

}  // namespace kova
