// A file descriptor and a stream, each with one owner.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <utility>

namespace kova::platform {

class Fd {
 public:
  Fd() = default;
  explicit Fd(int fd) : fd_(fd) {}
  Fd(Fd&& other) noexcept : fd_(other.Release()) {}
  Fd& operator=(Fd&& other) noexcept {
    Fd old(std::exchange(fd_, other.Release()));
    return *this;
  }
  // Keeps errno, so that an early return can report what went wrong before.
  ~Fd() {
    if (fd_ < 0) return;
    const int saved = errno;
    ::close(fd_);
    errno = saved;
  }

  explicit operator bool() const { return fd_ >= 0; }
  [[nodiscard]] int Get() const { return fd_; }
  [[nodiscard]] int Release() { return std::exchange(fd_, -1); }

  // For files that were written: closing can still fail. 0, or an errno.
  [[nodiscard]] int Close() { return ::close(Release()) == 0 ? 0 : errno; }

 private:
  int fd_ = -1;
};

struct FileClose {
  void operator()(std::FILE* file) const noexcept { (void)std::fclose(file); }
};
using FilePtr = std::unique_ptr<std::FILE, FileClose>;

}  // namespace kova::platform
