// Which certificates of the archive were issued by an ACME server.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "base/log.h"
#include "lifecycle/archived_certificate.h"

namespace kova {

// The ids of the archive index, sorted; empty, with a message from `site`, when it cannot be read.
std::vector<std::string> ListCertificateIds(Site site);

// True when the certificate's folder is there; false with a message from `site`.
[[nodiscard]] bool HasFolder(const ArchivedCertificate& certificate, Site site);

// The folders of the index that hold a renewal record.
std::set<std::string> ListAcmeFolders();

}  // namespace kova
