// One lock a certificate, against the other processes of this program.
//
// Held while a certificate's folder changes, is copied from or is healed, and never while a reload
// script, a hook or a CA is waited for. ARCHITECTURE.md says in which order locks are taken. One
// process must not take it twice for one certificate, and no process holds it for two.
#pragma once

#include <chrono>
#include <string>

#include "base/file_lock.h"

namespace kova::cert_archive {

// Below it one lock file a certificate, named by the id. On a file system that is empty after a
// restart, and the kernel's lock ends with its process: no lock is ever judged by its age.
inline constexpr char kCertificateLockFolder[] = "/run/kova-certificate";

// Enough for what others do under the lock: copies, and the making of two keys on a small host.
inline constexpr std::chrono::seconds kCertificateTimeout{120};

class CertificateLock {
 public:
  // `id` must be a plain name (archive/paths.h). Check Held() afterwards; what failed is logged.
  explicit CertificateLock(const std::string& id);

  [[nodiscard]] bool Held() const { return lock_.Held(); }
  [[nodiscard]] const Status& Outcome() const { return lock_.Outcome(); }
  [[nodiscard]] const std::string& Id() const { return id_; }

 private:
  std::string id_;
  FileLock lock_;
};

}  // namespace kova::cert_archive
