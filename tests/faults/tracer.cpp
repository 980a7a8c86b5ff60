#include "tracer.h"

#include <signal.h>
#include <sys/ptrace.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <set>

#include "key_watch.h"
#include "state_calls.h"

namespace fault_point {
namespace {

constexpr int kOptions = PTRACE_O_TRACESECCOMP | PTRACE_O_TRACEFORK | PTRACE_O_TRACEVFORK |
                         PTRACE_O_TRACECLONE | PTRACE_O_TRACEEXEC | PTRACE_O_EXITKILL;
constexpr int kNotRun = 127;

// Does not return. The parent writes to the pipe once it traces this process.
[[noreturn]] void BecomeCommand(char* const* command, const int (&ready)[2]) {
  char byte;
  close(ready[1]);
  if (read(ready[0], &byte, 1) == 1 && StopBeforeStateCalls()) {
    close(ready[0]);
    execvp(command[0], command);
  }
  _exit(kNotRun);
}

// 0 when it could not be started.
pid_t StartTraced(char* const* command) {
  int ready[2];
  if (pipe(ready) != 0) return 0;
  const pid_t child = fork();
  if (child == 0) BecomeCommand(command, ready);
  close(ready[0]);
  const bool traced = child > 0 && ptrace(PTRACE_SEIZE, child, nullptr, kOptions) == 0;
  const bool told = traced && write(ready[1], "", 1) == 1;
  close(ready[1]);
  return told ? child : 0;
}

Call CallOf(pid_t thread, const user_regs_struct& registers) {
  return {thread,
          static_cast<long>(registers.orig_rax),
          {registers.rdi, registers.rsi, registers.rdx, registers.r10, registers.r8, registers.r9}};
}

// Makes the stopped call fail: the kernel skips call number -1.
void FailCall(pid_t thread, user_regs_struct registers, int error) {
  registers.orig_rax = ~0ULL;
  registers.rax = static_cast<unsigned long long>(-static_cast<long long>(error));
  ptrace(PTRACE_SETREGS, thread, nullptr, &registers);
}

bool IsBelow(const std::string& path, const std::string& root) {
  return path == root || path.rfind(root + "/", 0) == 0;
}

std::string Quoted(const std::string& text) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string quoted = "\"";
  for (const unsigned char each : text) {
    if (each < ' ' || each == '"' || each == '\\') {
      quoted.append("\\u00").append({kDigits[each / 16], kDigits[each % 16]});
    } else {
      quoted.push_back(static_cast<char>(each));
    }
  }
  return quoted + "\"";
}

std::string ProgramOf(pid_t thread) {
  std::ifstream file("/proc/" + std::to_string(thread) + "/comm");
  std::string name;
  std::getline(file, name);
  return name;
}

class Tracer {
 public:
  Tracer(const Plan& plan, std::ostream& log) : plan_(plan), log_(log) {}

  int Follow(pid_t command) {
    command_ = command;
    threads_.insert(command);
    int status = 0;
    for (pid_t thread = Wait(&status); thread > 0; thread = Wait(&status)) Handle(thread, status);
    log_ << "{\"points\":" << points_ << ",\"status\":" << result_ << "}" << std::endl;
    return result_;
  }

 private:
  static pid_t Wait(int* status) {
    pid_t thread;
    do {
      thread = waitpid(-1, status, __WALL);
    } while (thread < 0 && errno == EINTR);
    return thread;
  }

  void Handle(pid_t thread, int status) {
    ReportExposed(thread);
    if (WIFSTOPPED(status)) {
      threads_.insert(thread);
      Resume(thread, status);
      return;
    }
    threads_.erase(thread);
    if (thread == command_) result_ = ResultOf(status);
  }

  static int ResultOf(int status) {
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }

  void Resume(pid_t thread, int status) {
    const int event = status >> 16;
    const int signal = WSTOPSIG(status);
    if (killed_) {
      kill(thread, SIGKILL);
    } else if (event == PTRACE_EVENT_SECCOMP) {
      BeforeCall(thread);
    } else if (event == PTRACE_EVENT_STOP && signal != SIGTRAP) {
      ptrace(PTRACE_LISTEN, thread, nullptr, nullptr);  // stopped by a signal, and stays so
    } else {
      ptrace(PTRACE_CONT, thread, nullptr, event == 0 ? signal : 0);
    }
  }

  void BeforeCall(pid_t thread) {
    user_regs_struct registers;
    if (ptrace(PTRACE_GETREGS, thread, nullptr, &registers) != 0) return;  // killed meanwhile
    const Call call = CallOf(thread, registers);
    std::vector<std::string> paths = PathsOf(call);
    if (Counts(paths)) {
      Report(call, paths);
      watch_.Expect(thread, std::move(paths));
      if (points_ == plan_.point) Disturb(thread, registers);
    }
    if (!killed_) ptrace(PTRACE_CONT, thread, nullptr, 0);
  }

  bool Counts(const std::vector<std::string>& paths) const {
    return std::any_of(paths.begin(), paths.end(), [&](const std::string& path) {
      return std::any_of(plan_.roots.begin(), plan_.roots.end(),
                         [&](const std::string& root) { return IsBelow(path, root); });
    });
  }

  void Disturb(pid_t thread, const user_regs_struct& registers) {
    switch (plan_.disturbance) {
      case Disturbance::kNone:
        break;
      case Disturbance::kKill:
        killed_ = true;
        for (const pid_t each : threads_) kill(each, SIGKILL);
        break;
      case Disturbance::kFail:
        FailCall(thread, registers, plan_.number);
        break;
      case Disturbance::kSignal:
        kill(command_, plan_.number);
        break;
      case Disturbance::kHold:
        raise(SIGSTOP);
        break;
    }
  }

  void Report(const Call& call, const std::vector<std::string>& paths) {
    log_ << "{\"point\":" << ++points_ << ",\"call\":" << Quoted(NameOf(call))
         << ",\"program\":" << Quoted(ProgramOf(call.thread)) << ",\"paths\":[";
    for (size_t i = 0; i < paths.size(); ++i) log_ << (i == 0 ? "" : ",") << Quoted(paths[i]);
    log_ << "]}" << std::endl;
  }

  void ReportExposed(pid_t thread) {
    for (const std::string& path : watch_.Look(thread)) {
      log_ << "{\"exposed\":" << Quoted(path) << ",\"after\":" << points_ << "}" << std::endl;
    }
  }

  const Plan& plan_;
  std::ostream& log_;
  pid_t command_ = 0;
  std::set<pid_t> threads_;
  KeyWatch watch_;
  long points_ = 0;
  bool killed_ = false;
  int result_ = kNotRun;
};

}  // namespace

int Run(char* const* command, const Plan& plan, std::ostream& log) {
  const pid_t child = StartTraced(command);
  return child == 0 ? kNotRun : Tracer(plan, log).Follow(child);
}

}  // namespace fault_point
