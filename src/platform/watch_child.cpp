#include "platform/watch_child.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <optional>

extern "C" {  // this C library's header does not say so itself
#include <sys/pidfd.h>
}

#include "platform/signals.h"
#include "platform/spawn.h"

namespace kova::platform {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int kChunk = 4096;

// How often a child is asked for where the kernel cannot tell of its end: before Linux 5.3, and
// where a filter of system calls forbids it.
constexpr int kAskAgain = 20;  // milliseconds

// The end of a child, which stays to be collected.
class ChildExit {
 public:
  explicit ChildExit(pid_t child) : child_(child), fd_(pidfd_open(child, 0)) {}

  // The first of the events that Poll() is given.
  [[nodiscard]] pollfd Event() const { return {fd_.Get(), POLLIN, 0}; }

  // poll(2), which may return early, with nothing.
  template <size_t N>
  int Poll(std::array<pollfd, N>& events, int time) const {
    if (fd_) return poll(events.data(), N, time);
    const int count = poll(events.data(), N, time < 0 ? kAskAgain : std::min(time, kAskAgain));
    if (!HasEnded()) return count;
    events[0].revents = POLLIN;
    return 1;
  }

 private:
  [[nodiscard]] bool HasEnded() const {
    siginfo_t info{};
    return waitid(P_PID, child_, &info, WEXITED | WNOHANG | WNOWAIT) != 0 || info.si_pid != 0;
  }

  pid_t child_;
  Fd fd_;
};

// Waits for one of the events, however often a signal interrupts it, or until the deadline.
class Patience {
 public:
  explicit Patience(milliseconds time) {
    if (time != kNoTimeLimit) deadline_ = Clock::now() + time;
  }

  // False when the time is over.
  template <size_t N>
  bool Poll(const ChildExit& exit, std::array<pollfd, N>& events) const {
    int count = 0;
    do {
      const int left = Left();
      if (left == 0) return false;
      count = exit.Poll(events, left);
    } while (count == 0 || (count < 0 && errno == EINTR));
    return true;
  }

 private:
  // In the form of poll(2): -1 is for ever.
  [[nodiscard]] int Left() const {
    if (!deadline_) return -1;
    const auto left = std::chrono::ceil<milliseconds>(*deadline_ - Clock::now()).count();
    return static_cast<int>(std::clamp<decltype(left)>(left, 0, INT_MAX));
  }

  std::optional<Clock::time_point> deadline_;
};

// What is read from the child, up to a limit.
class Collector {
 public:
  Collector(int fd, size_t limit, std::string& output) : fd_(fd), limit_(limit), output_(output) {}

  // One read of what is there. False when nothing is, at the end and beyond the limit.
  bool ReadSome() {
    std::array<char, kChunk> buffer{};
    ssize_t count = 0;
    do {
      count = read(fd_, buffer.data(), buffer.size());
    } while (count < 0 && errno == EINTR);
    if (count == 0) ended_ = true;
    if (count <= 0) return false;
    const size_t taken = std::min(static_cast<size_t>(count), limit_ - output_.size());
    output_.append(buffer.data(), taken);
    exceeded_ = taken < static_cast<size_t>(count);
    return !exceeded_;
  }

  // What the child itself left in the pipe, and not what a process behind it goes on writing.
  void Drain() {
    const int capacity = fcntl(fd_, F_GETPIPE_SZ);
    for (int left = capacity; left >= 0 && ReadSome(); left -= kChunk) continue;
  }

  [[nodiscard]] bool Ended() const { return ended_; }
  [[nodiscard]] bool Exceeded() const { return exceeded_; }

 private:
  int fd_;
  size_t limit_;
  std::string& output_;
  bool ended_ = false;
  bool exceeded_ = false;
};

// Nothing as long as the child runs, keeps within its limits and may do so.
std::optional<ChildEnd> Look(const std::array<pollfd, 3>& events, Collector& collector) {
  if (events[2].revents != 0) return ChildEnd::kInterrupted;
  if (events[0].revents != 0) {
    collector.Drain();
  } else if (events[1].revents != 0) {
    collector.ReadSome();
  }
  if (collector.Exceeded()) return ChildEnd::kTooMuch;
  if (events[0].revents != 0) return ChildEnd::kExited;
  return std::nullopt;
}

}  // namespace

int MakePipe(Pipe& result) {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) return errno;
  result = {AboveStandard(Fd(ends[0])), AboveStandard(Fd(ends[1]))};
  if (!result.reading || !result.writing) return errno;
  return fcntl(result.reading.Get(), F_SETFL, O_NONBLOCK) == 0 ? 0 : errno;
}

ChildEnd WatchChild(pid_t child, int reading, const ChildLimits& limits, std::string& output) {
  if (Interrupted()) return ChildEnd::kInterrupted;
  const ChildExit exit(child);
  const Patience patience(WithinCleanup(limits.time));
  Collector collector(reading, limits.output, output);
  std::array<pollfd, 3> events{{exit.Event(), {reading, POLLIN, 0}, {InterruptionFd(), POLLIN, 0}}};
  while (patience.Poll(exit, events)) {
    if (const auto end = Look(events, collector)) return *end;
    if (collector.Ended()) events[1].fd = -1;
  }
  return ChildEnd::kTooLate;
}

bool AwaitExit(pid_t child) {
  const ChildExit exit(child);
  std::array<pollfd, 2> events{{exit.Event(), {InterruptionFd(), POLLIN, 0}}};
  if (!Interrupted()) {
    const Patience patience(WithinCleanup(kNoTimeLimit));
    return patience.Poll(exit, events) && events[0].revents != 0;
  }
  // Most likely what undoes an unfinished step.
  const CleanupScope cleanup;
  events[1].fd = -1;
  return Patience(WithinCleanup(kNoTimeLimit)).Poll(exit, events);
}

}  // namespace kova::platform
