// SIGTERM, SIGINT and SIGHUP end a run the way a failure does: an exception unwinds it, so that
// destructors take back what was published, and then the process ends by that same signal.
//
// From the signal on, every wait that is not part of taking things back is cut short (Interrupted),
// and ten seconds later those are, too. A second signal ends the process at once. A signal that was
// ignored when the program started (nohup, a job in the background) stays ignored.
#pragma once

#include <chrono>
#include <functional>

namespace kova::platform {

// Thrown in place of an error. Of no other type, so that it passes the handlers of failures.
struct Interruption {
  int signal;
};

// Runs `body` with the handlers in place and returns its result. After a signal it does not return:
// one line goes to the log under `tag`, and the process ends by that signal.
int RunInterruptibly(const char* tag, const std::function<int()>& body);

// True when a wait has to end now: a signal came, and this is no CleanupScope, or it is one and
// its time is over.
[[nodiscard]] bool Interrupted();

// Throws Interruption when a signal came, except in a CleanupScope. Every wait ends with it, and
// whatever shows the result of a run begins with it.
void ThrowIfInterrupted();

// For poll(2): becomes readable when a signal comes. -1, which poll passes over, where there is
// nothing to wait for: without handlers, and in a CleanupScope.
[[nodiscard]] int InterruptionFd();

// What is taken back in the life of this object goes on in spite of a signal, until ten seconds
// after it.
class CleanupScope {
 public:
  CleanupScope();
  ~CleanupScope();
  CleanupScope(const CleanupScope&) = delete;
  CleanupScope& operator=(const CleanupScope&) = delete;
};

// For the start of the output: throws when a signal came; one that comes later ends the process at
// once, since there is nothing left to take back.
void FinishRun();

// For what is left to do after the output, which is short: until the process ends no signal is
// taken any more.
void HoldSignals();

// A time limit of its own, or what is left of a CleanupScope's ten seconds when that is less.
[[nodiscard]] std::chrono::milliseconds WithinCleanup(std::chrono::milliseconds limit);

}  // namespace kova::platform
