// The host's default certificate set: a private CA and a server certificate signed by it, made so
// that services have something to serve when their own certificate is lost.
#pragma once

#include <string>

#include "base/file_lock.h"
#include "base/status.h"

namespace kova::mkcert {

// One generation at a time on this host: they share the tool's working files and, when several
// processes repair the same certificate, its folder.
class GenerationLock : public FileLock {
 public:
  GenerationLock();
};

// Fills `folder` (created when missing) with kova-ca-privkey.pem, kova-ca-cert.pem, privkey.pem,
// cert.pem, fullchain.pem and the marker is_default_cert, replacing what is there. fullchain.pem is
// the last certificate file to appear, so a folder that holds all files is a finished one. What was
// made before a failure, which is logged, stays.
Status GenerateDefaultSet(const std::string& folder);

// The same for a caller that holds the lock for longer.
Status GenerateDefaultSet(const std::string& folder, const GenerationLock& lock);

}  // namespace kova::mkcert
