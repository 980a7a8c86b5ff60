// Revocation.
#pragma once

#include <optional>

#include "base/settings.h"
#include "lifecycle/archived_certificate.h"

namespace kova {

// Revokes the certificate with the account and protocol version of its renewal record, for a reason
// of RFC 5280 (5.3.1; version 2 alone knows them) or for none. Problems with the record are only
// logged. What the clients throw is logged and thrown on.
void Revoke(const ArchivedCertificate& certificate, const Settings& settings,
            std::optional<int> reason = std::nullopt);

}  // namespace kova
