// Which certificate a service is taken from is decided before it is moved: two processes that move
// one service at the same time would leave it listed twice.
#pragma once

#include "base/file_lock.h"

namespace kova::archive_cli {

// Held for as long as a service changes hands. The constructor throws Failure when somebody else
// keeps it for too long.
class ServiceLock {
 public:
  ServiceLock();

 private:
  FileLock lock_;
};

}  // namespace kova::archive_cli
