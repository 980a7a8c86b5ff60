// System calls of this test program that can be made to fail, and that keep a record. They take the
// place of the C library's for everything that is linked into the program.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace kova::test {

struct Faults {
  // The calls so far, in order: "write", "fsync file", "fsync folder", "fchmod", "fchown",
  // "link", "rename"; "close" is not among them.
  std::vector<std::string> calls;

  // Fails the first call of that name with that errno.
  std::string failing;
  int error = 0;

  // Kills the process before the first call of that name.
  std::string deadly;

  size_t largest_write = 0;    // when not 0, a write takes at most that many bytes
  int interrupted_writes = 0;  // so many writes fail with EINTR first

  std::function<void(int)> on_write;  // called with the descriptor before each write

  std::function<void(const char*)> on_unlink;  // called with the path after each unlink(2)
  bool every_file_has_a_name = false;          // as on file systems without O_TMPFILE
  bool no_pidfd = false;                       // as before Linux 5.3
  std::vector<unsigned char> random;           // the byte that fills each getrandom(2), in turn

  // So many waits by ppoll(2) end at once with EINTR, as after a signal.
  int interrupted_waits = 0;
  std::vector<std::chrono::nanoseconds> waits;  // the time-outs given to ppoll(2)
};

// The faults in force; none outside the life of a FaultScope.
Faults*& CurrentFaults();

class FaultScope {
 public:
  FaultScope() { CurrentFaults() = &faults; }
  ~FaultScope() { CurrentFaults() = nullptr; }
  FaultScope(const FaultScope&) = delete;
  FaultScope& operator=(const FaultScope&) = delete;
  Faults faults;
};

}  // namespace kova::test
