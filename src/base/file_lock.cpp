#include "base/file_lock.h"

#include <utility>

#include "base/log.h"
#include "platform/files.h"

namespace kova {

FileLock::FileLock(const char* tag, std::string path, std::chrono::seconds timeout)
    : tag_(tag), path_(std::move(path)) {
  const int seconds = static_cast<int>(timeout.count());
  if (KLIBCFileLockTimeByFile(path_, /*exclusive=*/1, seconds, &handle_) < 0) {
    LogError(tag_, "Lock list file [%s] failed", path_.c_str());
    outcome_ = Status::FailedCall("cannot lock", "[" + path_ + "]");
  }
}

FileLock::~FileLock() {
  if (handle_ >= 0 && KLIBCFileUnlockByFile(handle_) < 0) {
    LogError(tag_, "Failed to unlock %s", path_.c_str());
  }
}

}  // namespace kova
