// What every run that renews has in common: there is one at a time on a host, and it hands what it
// has renewed to the services.
#pragma once

#include <optional>

#include "base/file_lock.h"
#include "base/sl_error.h"
#include "lifecycle/archived_certificate.h"

namespace kova {

// The lock of a run that many certificates depend on: one that renews, and a change of an account
// that they are renewed with. The only one that may be held while a CA, a hook or a reload script
// is waited for.
inline constexpr char kRunLock[] = "/run/kova-renew-all.lock";

// Waits for another run to end, and finishes what killed ones left. What is due is to be decided
// after that.
class RenewalRun {
 public:
  RenewalRun();

 private:
  // Without the lock it is done all the same: each certificate has one of its own.
  FileLock only_run_;
};

struct Redeployment {
  std::optional<SLError> failure;  // the next run of renew-all tries again
  bool serves_system = false;      // done, and the system's default service was among them
};

// Deploys the certificate to its services and forgets that it was to be. Never throws.
[[nodiscard]] Redeployment Redeploy(const ArchivedCertificate& certificate);

// False with a message.
bool RestartWebFrontend();

}  // namespace kova
