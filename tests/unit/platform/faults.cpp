#include "faults.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace kova::test {

Faults*& CurrentFaults() {
  static Faults* current = nullptr;
  return current;
}

namespace {

// Notes the call. True when it has to fail; errno is then set.
bool Fails(const std::string& name) {
  Faults* faults = CurrentFaults();
  if (faults == nullptr) return false;
  faults->calls.push_back(name);
  if (faults->deadly == name) kill(getpid(), SIGKILL);
  if (faults->failing != name) return false;
  faults->failing.clear();
  errno = faults->error;
  return true;
}

template <typename... Args>
int Call(const std::string& name, long number, Args... args) {
  return Fails(name) ? -1 : static_cast<int>(syscall(number, args...));
}

}  // namespace
}  // namespace kova::test

using kova::test::Call;
using kova::test::CurrentFaults;
using kova::test::Fails;

extern "C" {

ssize_t write(int fd, const void* data, size_t size) {
  if (auto* faults = CurrentFaults(); faults != nullptr) {
    if (faults->interrupted_writes > 0) {
      --faults->interrupted_writes;
      errno = EINTR;
      return -1;
    }
    if (faults->on_write) faults->on_write(fd);
    if (faults->largest_write > 0) size = std::min(size, faults->largest_write);
    if (Fails("write")) return -1;
  }
  return syscall(SYS_write, fd, data, size);
}

int open(const char* path, int flags, ...) {
  auto* faults = CurrentFaults();
  if (faults != nullptr && faults->every_file_has_a_name && (flags & O_TMPFILE) == O_TMPFILE) {
    errno = EOPNOTSUPP;
    return -1;
  }
  mode_t mode = 0;
  if ((flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE) {
    std::va_list rest;
    va_start(rest, flags);
    mode = va_arg(rest, mode_t);
    va_end(rest);
  }
  return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

int fsync(int fd) {
  struct stat status {};
  fstat(fd, &status);
  return Call(S_ISDIR(status.st_mode) ? "fsync folder" : "fsync file", SYS_fsync, fd);
}

int fchmod(int fd, mode_t mode) noexcept { return Call("fchmod", SYS_fchmod, fd, mode); }

int fchown(int fd, uid_t uid, gid_t gid) noexcept {
  return Call("fchown", SYS_fchown, fd, uid, gid);
}

int rename(const char* from, const char* to) noexcept {
  return Call("rename", SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0);
}

int linkat(int from_folder, const char* from, int to_folder, const char* to, int flags) noexcept {
  return Call("link", SYS_linkat, from_folder, from, to_folder, to, flags);
}

int unlink(const char* path) noexcept {
  const auto result = static_cast<int>(syscall(SYS_unlink, path));
  if (auto* faults = CurrentFaults(); faults != nullptr && faults->on_unlink) {
    const int saved = errno;
    faults->on_unlink(path);
    errno = saved;
  }
  return result;
}

ssize_t getrandom(void* buffer, size_t size, unsigned flags) {
  auto* faults = CurrentFaults();
  if (faults == nullptr || faults->random.empty()) {
    return syscall(SYS_getrandom, buffer, size, flags);
  }
  std::memset(buffer, faults->random.front(), size);
  faults->random.erase(faults->random.begin());
  return static_cast<ssize_t>(size);
}

int pidfd_open(pid_t pid, unsigned flags) noexcept {
  auto* faults = CurrentFaults();
  if (faults == nullptr || !faults->no_pidfd) {
    return static_cast<int>(syscall(SYS_pidfd_open, pid, flags));
  }
  errno = ENOSYS;
  return -1;
}

int ppoll(pollfd* fds, nfds_t count, const timespec* timeout, const sigset_t* mask) {
  auto* faults = CurrentFaults();
  if (faults == nullptr || timeout == nullptr) {
    timespec copy = timeout == nullptr ? timespec{} : *timeout;  // the kernel writes to it
    return static_cast<int>(syscall(SYS_ppoll, fds, count, timeout == nullptr ? nullptr : &copy,
                                    mask, sizeof(unsigned long)));
  }
  faults->waits.push_back(std::chrono::seconds(timeout->tv_sec) +
                          std::chrono::nanoseconds(timeout->tv_nsec));
  if (faults->interrupted_waits-- <= 0) return 0;
  errno = EINTR;
  return -1;
}

}  // extern "C"
