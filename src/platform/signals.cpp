#include "platform/signals.h"

#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>

#include "platform/error.h"
#include "platform/fd.h"

namespace kova::platform {
namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;

constexpr std::array<int, 3> kSignals = {SIGTERM, SIGINT, SIGHUP};
constexpr std::chrono::seconds kCleanupTime{10};

// What the handler writes. Lock-free, as everything is that a handler may touch.
struct Caught {
  std::atomic<int> signal{0};
  std::atomic<int64_t> moment{0};  // of the monotonic clock, in nanoseconds
  std::atomic<int> wake_up{-1};    // the writing end of the pipe behind InterruptionFd
};
Caught
    caught;  // NOLINT(cppcoreguidelines-avoid-non-const-global-variables): a handler has no other
int reading_end = -1;   // NOLINT(cppcoreguidelines-avoid-non-const-global-variables)
int cleanup_depth = 0;  // NOLINT(cppcoreguidelines-avoid-non-const-global-variables)

int64_t Now() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * int64_t{1'000'000'000} + now.tv_nsec;
}

void SetAction(int signal, void (*handler)(int)) {
  struct sigaction action {};
  action.sa_handler = handler;  // without SA_RESTART: blocking calls end
  sigaction(signal, &action, nullptr);
}

// Only those that this program handles: what was ignored stays so.
void RestoreDefaults() {
  for (const int signal : kSignals) {
    struct sigaction action {};
    sigaction(signal, nullptr, &action);
    if (action.sa_handler != SIG_IGN) SetAction(signal, SIG_DFL);
  }
}

void Catch(int signal) {
  const int saved = errno;
  RestoreDefaults();  // the next one ends us
  caught.moment = Now();
  caught.signal = signal;
  if (write(caught.wake_up, "", 1) < 0) errno = saved;  // the flag alone, then
  errno = saved;
}

// The handlers and the pipe, for the life of the object.
class Handlers {
 public:
  Handlers() {
    std::array<int, 2> ends{-1, -1};
    if (pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) == 0) {
      reading_ = Fd(ends[0]);
      writing_ = Fd(ends[1]);
    }
    reading_end = reading_.Get();
    caught.wake_up = writing_.Get();
    for (const int signal : kSignals) {
      struct sigaction before {};
      sigaction(signal, nullptr, &before);
      if (before.sa_handler != SIG_IGN) SetAction(signal, &Catch);
    }
  }
  ~Handlers() {
    RestoreDefaults();
    reading_end = -1;
    caught.wake_up = -1;
  }
  Handlers(const Handlers&) = delete;
  Handlers& operator=(const Handlers&) = delete;

 private:
  Fd reading_;
  Fd writing_;
};

[[noreturn]] void EndBy(int signal) {
  SetAction(signal, SIG_DFL);
  sigset_t only;
  sigemptyset(&only);
  sigaddset(&only, signal);
  sigprocmask(SIG_UNBLOCK, &only, nullptr);
  (void)raise(signal);
  _exit(128 + signal);  // not reached: each of them ends a process by default
}

milliseconds CleanupTimeLeft() {
  const nanoseconds gone(Now() - caught.moment);
  const milliseconds left = kCleanupTime - std::chrono::duration_cast<milliseconds>(gone);
  return std::max(left, milliseconds(0));
}

}  // namespace

int RunInterruptibly(const char* tag, const std::function<int()>& body) {
  int result = 0;
  {
    const Handlers handlers;
    try {
      result = body();
    } catch (const Interruption&) {
      // What it has to say is in `caught`.
    }
  }
  const int signal = caught.signal;
  if (signal == 0) return result;
  PlatformLog(LOG_ERR, tag, __LINE__, "Ended by signal %d (%s)", signal, sigdescr_np(signal));
  EndBy(signal);
}

bool Interrupted() {
  if (caught.signal == 0) return false;
  return cleanup_depth == 0 || CleanupTimeLeft().count() == 0;
}

void ThrowIfInterrupted() {
  const int signal = caught.signal;
  if (signal != 0 && cleanup_depth == 0) throw Interruption{signal};
}

int InterruptionFd() { return cleanup_depth == 0 ? reading_end : -1; }

CleanupScope::CleanupScope() { ++cleanup_depth; }
CleanupScope::~CleanupScope() { --cleanup_depth; }

void FinishRun() {
  RestoreDefaults();
  ThrowIfInterrupted();
}

void HoldSignals() {
  sigset_t all;
  sigemptyset(&all);
  for (const int signal : kSignals) sigaddset(&all, signal);
  sigprocmask(SIG_BLOCK, &all, nullptr);
}

milliseconds WithinCleanup(milliseconds limit) {
  if (caught.signal == 0 || cleanup_depth == 0) return limit;
  return std::min(limit, CleanupTimeLeft());
}

}  // namespace kova::platform
