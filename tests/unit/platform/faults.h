// System calls of this test program that can be made to fail, and that keep a record. They take the
// place of the C library's for everything that is linked into the program.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace kova::test {

struct Faults {
  // The calls so far, in order: "write", "fsync file", "fsync folder", "fchmod", "fchown",
  // "rename", "close" is not among them.
  std::vector<std::string> calls;

  // Fails the first call of that name with that errno.
  std::string failing;
  int error = 0;

  size_t largest_write = 0;    // when not 0, a write takes at most that many bytes
  int interrupted_writes = 0;  // so many writes fail with EINTR first

  std::function<void(int)> on_write;  // called with the descriptor before each write

  std::function<void(const char*)> on_unlink;  // called with the path after each unlink(2)
  std::vector<unsigned char> random;           // the byte that fills each getrandom(2), in turn

  // What sleep(3) returns, call after call, and the errno it leaves; once used up, 0 and nothing.
  struct Sleep {
    unsigned left;
    int error;
  };
  std::vector<Sleep> sleeps;
  std::vector<unsigned> slept;  // the arguments of sleep(3)
  std::vector<long> napped;     // those of nanosleep(2), in milliseconds
  int interrupted_naps = 0;     // so many of these fail with EINTR, a millisecond before their end
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
