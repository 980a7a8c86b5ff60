#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <ctime>

#include "platform/error.h"
#include "platform/fd.h"
#include "platform/files.h"

namespace kova::platform {
namespace {

using Clock = std::chrono::steady_clock;
constexpr timespec kPollInterval{0, 20'000'000};

// Creating and opening are two calls on purpose: in a sticky folder the kernel refuses O_CREAT on
// a file that another user made first (fs.protected_regular). O_NONBLOCK is for a planted pipe.
Fd OpenLockFile(const std::string& file) {
  constexpr int kOpen = O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
  while (true) {
    Fd existing(open(file.c_str(), kOpen));
    if (existing || errno != ENOENT) return existing;
    Fd created(open(file.c_str(), kOpen | O_CREAT | O_EXCL, S_IRUSR | S_IWUSR));
    if (created && fchmod(created.Get(), S_IRUSR | S_IWUSR) != 0) return {};
    if (created || errno != EEXIST) return created;
  }
}

// 0, ETIMEDOUT, or what flock said.
int WaitForLock(int fd, int operation, Clock::time_point deadline) {
  while (flock(fd, operation | LOCK_NB) != 0) {
    if (errno == EINTR) continue;
    if (errno != EWOULDBLOCK) return errno;
    if (Clock::now() >= deadline) return ETIMEDOUT;
    nanosleep(&kPollInterval, nullptr);
  }
  return 0;
}

bool IsSameFile(const std::string& file, const struct stat& locked) {
  struct stat named {};
  return lstat(file.c_str(), &named) == 0 && named.st_dev == locked.st_dev &&
         named.st_ino == locked.st_ino;
}

// Sets errno when it returns nothing.
Fd Acquire(const std::string& file, int operation, Clock::time_point deadline) {
  while (true) {
    Fd fd = OpenLockFile(file);
    struct stat status {};
    if (!fd || fstat(fd.Get(), &status) != 0) return {};
    if (!S_ISREG(status.st_mode)) {
      errno = EINVAL;
      return {};
    }
    if (const int error = WaitForLock(fd.Get(), operation, deadline); error != 0) {
      errno = error;
      return {};
    }
    // A file that was removed meanwhile locks nobody out any more.
    if (IsSameFile(file, status)) return fd;
  }
}

}  // namespace
}  // namespace kova::platform

int KLIBCFileLockTimeByFile(const std::string& file, int exclusive, int timeout_seconds,
                            int* handle) {
  using namespace kova::platform;
  const auto deadline = Clock::now() + std::chrono::seconds(timeout_seconds);
  Fd fd = Acquire(file, exclusive != 0 ? LOCK_EX : LOCK_SH, deadline);
  if (!fd) {
    RecordError(errno);
    return -1;
  }
  *handle = fd.Release();
  return 0;
}

int KLIBCFileUnlockByFile(int handle) {
  using namespace kova::platform;
  if (flock(handle, LOCK_UN) == 0 && close(handle) == 0) return 0;
  RecordError(errno);
  return -1;
}
