// Follows a command and every process that it starts, and disturbs it before one of its
// state-changing calls, counted from 1 over all of its processes.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace fault_point {

enum class Disturbance {
  kNone,
  kKill,    // all processes are killed before the call
  kFail,    // the call is not made and fails
  kSignal,  // the command gets a signal, then the call is made
  kHold,    // this tool stops itself by SIGSTOP, and with it the command until SIGCONT
};

struct Plan {
  Disturbance disturbance = Disturbance::kNone;
  long point = 0;
  int number = 0;                  // of the error or the signal
  std::vector<std::string> roots;  // calls on paths elsewhere do not count
};

// Runs the command and writes one JSON object a line to `log`: for each counted call its "point",
// "call", "program" and "paths"; "exposed" with the path of a key that others could read and the
// number of calls until then, "after"; at the end "points" and "status". Returns the command's exit
// status, or 128 and the signal that ended it, 127 when it could not be run.
[[nodiscard]] int Run(char* const* command, const Plan& plan, std::ostream& log);

}  // namespace fault_point
