// Starting one child program with a clean set of descriptors and signals, and waiting for it.
#pragma once

#include <sys/types.h>

#include <csignal>
#include <string>
#include <vector>

#include "platform/fd.h"

namespace kova::platform {

// As long as one of these lives, a child that ends can be waited for, even when this program was
// started with SIGCHLD ignored, which would throw the exit status away.
class ChildSignalGuard {
 public:
  ChildSignalGuard();
  ~ChildSignalGuard();
  ChildSignalGuard(const ChildSignalGuard&) = delete;
  ChildSignalGuard& operator=(const ChildSignalGuard&) = delete;

 private:
  struct sigaction saved_ {};
};

// The same descriptor at a number that is not one of the three standard ones, close-on-exec.
// Where the program was started with those closed, a new descriptor may have got their number.
[[nodiscard]] Fd AboveStandard(Fd fd);

struct SpawnOptions {
  int output = -1;         // standard output and standard error (both from AboveStandard), or -1:
  int errors = -1;         // /dev/null for standard output, our own for standard error
  bool own_group = false;  // the child leads a process group of its own
};

// Starts argv[0] (an absolute path). Standard input is /dev/null, every descriptor beyond the
// standard ones is closed, every signal is at its default and PATH is kChildPath (process.h).
// Returns 0 and the process, or the errno of what failed, that of execve included.
[[nodiscard]] int Spawn(const std::vector<std::string>& argv, const SpawnOptions& options,
                        pid_t* child);

// Waits for the child. Its exit status, or negative (error triple EINTR) when a signal killed it.
[[nodiscard]] int WaitFor(pid_t child);

}  // namespace kova::platform
