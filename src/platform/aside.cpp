#include "platform/aside.h"

#include <sys/prctl.h>
#include <syslog.h>
#include <unistd.h>

#include <csignal>
#include <string>

#include "platform/spawn.h"
#include "platform/watch_child.h"

namespace kova::platform {
namespace {

constexpr int kAnswer = STDERR_FILENO + 1;

// Keeps the standard descriptors, for messages, and the answer's end of the pipe. Files of ours may
// be locked: they must not stay so when we are gone.
void KeepOnly(int answer) {
  closelog();  // or its descriptor would be somebody else's next
  if (dup2(answer, kAnswer) < 0 || close_range(kAnswer + 1, ~0U, 0) != 0) _exit(1);
}

[[noreturn]] void BeTheChild(int answer, pid_t parent, const std::function<bool()>& question) {
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) (void)std::signal(signal, SIG_DFL);
  if (prctl(PR_SET_PDEATHSIG, SIGKILL, 0, 0, 0) != 0 || getppid() != parent) _exit(1);
  KeepOnly(answer);
  try {
    if (question()) _exit(write(kAnswer, "y", 1) == 1 ? 0 : 1);
  } catch (...) {
    _exit(1);
  }
  _exit(0);
}

}  // namespace

bool AskAside(const std::function<bool()>& question) {
  Pipe pipe;
  if (MakePipe(pipe) != 0) return question();
  const ChildSignalGuard guard;
  const pid_t parent = getpid();
  const pid_t child = fork();
  if (child < 0) return question();
  if (child == 0) BeTheChild(pipe.writing.Get(), parent, question);
  pipe.writing = Fd();
  std::string answer;
  const ChildEnd end = WatchChild(child, pipe.reading.Get(), {kNoTimeLimit, 1}, answer);
  if (end != ChildEnd::kExited) kill(child, SIGKILL);
  return WaitFor(child) == 0 && answer == "y";
}

}  // namespace kova::platform
