// The system calls that change what stays on a disk, and where a call's paths are.
#pragma once

#include <sys/types.h>

#include <array>
#include <string>
#include <vector>

namespace fault_point {

// A system call as it was stopped before it began.
struct Call {
  pid_t thread;
  long number;
  std::array<unsigned long long, 6> arguments;
};

// From here on the calling process and its children stop before state-changing calls; they need a
// tracer with PTRACE_O_TRACESECCOMP. False with errno on failure.
[[nodiscard]] bool StopBeforeStateCalls();

[[nodiscard]] const char* NameOf(const Call& call);

// Absolute paths that the call works on, one or two; a descriptor counts with the path of its file
// when that is a regular file or a folder. Empty when there is none.
[[nodiscard]] std::vector<std::string> PathsOf(const Call& call);

}  // namespace fault_point
