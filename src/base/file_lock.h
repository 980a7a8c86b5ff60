// An exclusive lock on a file, held for the life of the object.
#pragma once

#include <chrono>
#include <string>

#include "base/status.h"

namespace kova {

class FileLock {
 public:
  // Waits up to `timeout`. Check Held() afterwards: a lock that could not be had is logged under
  // `tag`, as is a failed release.
  FileLock(const char* tag, std::string path, std::chrono::seconds timeout);
  ~FileLock();
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;

  [[nodiscard]] bool Held() const { return handle_ >= 0; }
  // Done when the lock is held, else why it could not be had.
  [[nodiscard]] const Status& Outcome() const { return outcome_; }

 private:
  const char* tag_;
  std::string path_;
  int handle_ = -1;
  Status outcome_;
};

}  // namespace kova
