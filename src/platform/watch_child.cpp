#include "platform/watch_child.h"

#include <fcntl.h>
#include <poll.h>

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

// poll(2) until one of the events, however often a signal interrupts it, or until the deadline.
class Patience {
 public:
  explicit Patience(milliseconds time) {
    if (time != kNoTimeLimit) deadline_ = Clock::now() + time;
  }

  // False when the time is over.
  template <size_t N>
  bool Poll(std::array<pollfd, N>& events) const {
    int count = 0;
    do {
      const int left = Left();
      if (left == 0) return false;
      count = poll(events.data(), events.size(), left);
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
  const Fd exit(pidfd_open(child, 0));
  if (!exit && reading < 0) return ChildEnd::kExited;  // as good as we can tell
  const Patience patience(WithinCleanup(limits.time));
  Collector collector(reading, limits.output, output);
  std::array<pollfd, 3> events{
      {{exit.Get(), POLLIN, 0}, {reading, POLLIN, 0}, {InterruptionFd(), POLLIN, 0}}};
  while (patience.Poll(events)) {
    if (const auto end = Look(events, collector)) return *end;
    if (!collector.Ended()) continue;
    if (!exit) return ChildEnd::kExited;
    events[1].fd = -1;
  }
  return ChildEnd::kTooLate;
}

bool AwaitExit(pid_t child) {
  const Fd exit(pidfd_open(child, 0));
  if (!exit) return true;  // waitpid(2) will do, without us
  std::array<pollfd, 2> events{{{exit.Get(), POLLIN, 0}, {InterruptionFd(), POLLIN, 0}}};
  if (!Interrupted()) {
    const Patience patience(WithinCleanup(kNoTimeLimit));
    return patience.Poll(events) && events[0].revents != 0;
  }
  // Most likely what undoes an unfinished step.
  const CleanupScope cleanup;
  events[1].fd = -1;
  return Patience(WithinCleanup(kNoTimeLimit)).Poll(events);
}

}  // namespace kova::platform
