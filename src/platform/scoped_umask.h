// The umask that child programs inherit, for the life of the object.
#pragma once

#include <sys/stat.h>

namespace kova {

// For tools that write private keys or copies of them: what they create is never, not even before
// its final mode is set, open to others.
inline constexpr mode_t kPrivateUmask = 077;

// For tools that create folders: 0755, whoever started this program.
inline constexpr mode_t kFolderUmask = 022;

class ScopedUmask {
 public:
  explicit ScopedUmask(mode_t mask) : previous_(umask(mask)) {}
  ~ScopedUmask() { umask(previous_); }
  ScopedUmask(const ScopedUmask&) = delete;
  ScopedUmask& operator=(const ScopedUmask&) = delete;

 private:
  mode_t previous_;
};

}  // namespace kova
