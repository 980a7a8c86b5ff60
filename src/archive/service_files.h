// The certificate files of one service.
#pragma once

#include <sys/types.h>

#include <string>

#include "archive/service_object.h"
#include "base/status.h"

namespace kova::cert_archive {

// Where a service's next set is put together.
std::string StagingFolder(const Service& service);

// Replaces the service's folder by copies of the files of certificate `id`, owned by uid:gid. The
// folder holds the whole old or the whole new set, whenever the process is killed: while they
// change places, the old one stands in the folder's ".bak". `service` must stay in its folder.
Status InstallServiceFiles(const std::string& id, const Service& service, uid_t uid, gid_t gid);

// The first file of the service's folder that is not the one of certificate `id`: another content,
// missing, or left from an earlier set. Empty when the service has the certificate's set.
// `service` must stay in its folder.
[[nodiscard]] std::string DifferingServiceFile(const std::string& id, const Service& service);

}  // namespace kova::cert_archive
