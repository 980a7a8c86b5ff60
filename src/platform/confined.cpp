#include "platform/confined.h"

#include <fcntl.h>
#include <grp.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fstream>
#include <string_view>

#include "platform/error.h"
#include "platform/spawn.h"

#if defined(__SANITIZE_ADDRESS__)
#define KOVA_BOUNDS_MEMORY 0  // the sanitizer reserves terabytes of addresses
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KOVA_BOUNDS_MEMORY 0
#endif
#endif
#ifndef KOVA_BOUNDS_MEMORY
#define KOVA_BOUNDS_MEMORY 1
#endif

namespace kova::platform {
namespace {

constexpr char kTag[] = "confined";
constexpr uid_t kNobody = 65534;  // the kernel's own overflow id, on every system
constexpr gid_t kNogroup = 65534;
constexpr int kCannotConfine = 77;  // exit status
constexpr int kAnswer = STDERR_FILENO + 1;
constexpr rlim_t kMostDescriptors = 16;
constexpr rlim_t kMostMemory = 64U << 20;
// A process that has grown, or has many threads, takes up more addresses than that from the start.
constexpr rlim_t kRoomToWork = 16U << 20;
// Empty but for the child's own descriptors, which it has anyway; and it is there for certain, with
// nothing to make and nothing to leave behind.
constexpr char kEmptyFolder[] = "/proc/self/fdinfo";

bool Limit(__rlimit_resource resource, rlim_t value) {
  const rlimit limit{value, value};
  return setrlimit(resource, &limit) == 0;
}

// The addresses that this process takes up.
rlim_t AddressSpace() {
  rlim_t pages = 0;
  std::ifstream("/proc/self/statm") >> pages;
  return pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
}

bool LimitResources(std::chrono::milliseconds time) {
  const auto seconds = std::chrono::ceil<std::chrono::seconds>(time).count();
  if (KOVA_BOUNDS_MEMORY == 1 &&
      !Limit(RLIMIT_AS, std::max(kMostMemory, AddressSpace() + kRoomToWork))) {
    return false;
  }
  return Limit(RLIMIT_CPU, static_cast<rlim_t>(seconds)) && Limit(RLIMIT_FSIZE, 0) &&
         Limit(RLIMIT_CORE, 0) && Limit(RLIMIT_NOFILE, kMostDescriptors);
}

// Leaves the answer's end of the pipe, and /dev/null in the places of the standard descriptors.
bool KeepOnly(int answer) {
  const int null = open("/dev/null", O_RDWR);
  if (null < 0) return false;
  for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (dup2(null, fd) < 0) return false;
  }
  if (dup2(answer, kAnswer) < 0) return false;
  return close_range(kAnswer + 1, ~0U, 0) == 0;
}

// Where this program is not root's it has no rights to give away, nor that of changing its root.
bool GiveUpRights() {
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return false;
  if (geteuid() != 0) return true;
  return chdir(kEmptyFolder) == 0 && chroot(".") == 0 && setgroups(0, nullptr) == 0 &&
         setresgid(kNogroup, kNogroup, kNogroup) == 0 && setresuid(kNobody, kNobody, kNobody) == 0;
}

// The child does not outlive its parent, however that ends.
bool DieWith(pid_t parent) {
  return prctl(PR_SET_PDEATHSIG, SIGKILL, 0, 0, 0) == 0 && getppid() == parent;
}

bool Confine(int answer, std::chrono::milliseconds time, pid_t parent) {
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) (void)std::signal(signal, SIG_DFL);
  if (!KeepOnly(answer) || !LimitResources(time) || !GiveUpRights()) return false;
  // After the ids, whose change takes it back; and nobody else's process may look into this one.
  return Limit(RLIMIT_NPROC, 0) && prctl(PR_SET_DUMPABLE, 0, 0, 0, 0) == 0 && DieWith(parent);
}

void Write(std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = write(kAnswer, text.data(), text.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return;
    text.remove_prefix(static_cast<size_t>(count));
  }
}

[[noreturn]] void BeTheChild(int answer, std::chrono::milliseconds time, pid_t parent,
                             const std::function<std::string()>& work) {
  if (!Confine(answer, time, parent)) _exit(kCannotConfine);
  try {
    Write(work());
  } catch (...) {
    _exit(1);
  }
  _exit(0);
}

// Ends the child unless it has ended. True when it came to a good end.
bool Reap(pid_t child, ChildEnd end) {
  if (end != ChildEnd::kExited) kill(child, SIGKILL);
  const int status = WaitFor(child);
  if (end == ChildEnd::kExited && status == kCannotConfine) {
    PlatformLog(LOG_ERR, kTag, __LINE__, "Failed to give up rights, nothing done");
  }
  return end == ChildEnd::kExited && status == 0;
}

}  // namespace

std::optional<std::string> RunConfined(const ChildLimits& limits,
                                       const std::function<std::string()>& work) {
  Pipe pipe;
  if (MakePipe(pipe) != 0) return std::nullopt;
  const ChildSignalGuard guard;
  const pid_t parent = getpid();
  const pid_t child = fork();
  if (child < 0) return std::nullopt;
  if (child == 0) BeTheChild(pipe.writing.Get(), limits.time, parent, work);
  pipe.writing = Fd();
  std::string answer;
  const ChildEnd end = WatchChild(child, pipe.reading.Get(), limits, answer);
  if (!Reap(child, end)) return std::nullopt;
  return answer;
}

}  // namespace kova::platform
