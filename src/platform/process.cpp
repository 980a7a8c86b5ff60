#include "platform/process.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <syslog.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>

extern "C" {  // this C library's header does not say so itself
#include <sys/pidfd.h>
}

#include "platform/error.h"
#include "platform/spawn.h"
#include "platform/syslog_line.h"

namespace kova::platform {
namespace {

constexpr char kTag[] = "process";
constexpr size_t kLongestLine = 512;
constexpr int kChunk = 4096;

int CannotRun(int error, int line = __builtin_LINE()) {
  RecordError(error, __builtin_FILE(), line);
  return -1;
}

std::vector<std::string> Vector(const std::string& program, const KovaArgs& args) {
  std::vector<std::string> argv = {program};
  argv.insert(argv.end(), args.begin(), args.end());
  return argv;
}

int RunInheriting(const std::vector<std::string>& argv) {
  const ChildSignalGuard guard;
  pid_t child = -1;
  const int error = Spawn(argv, -1, -1, &child);
  return error != 0 ? CannotRun(error) : WaitFor(child);
}

// The last line of the file that holds more than blanks, fit for one syslog line.
std::string LastLine(int fd) {
  const off_t size = lseek(fd, 0, SEEK_END);
  std::array<char, 4096> buffer{};
  const off_t start = std::max<off_t>(0, size - static_cast<off_t>(buffer.size()));
  const ssize_t count = pread(fd, buffer.data(), buffer.size(), start);
  std::string text(buffer.data(), count > 0 ? static_cast<size_t>(count) : 0);
  text.erase(text.find_last_not_of(" \t\r\n") + 1);
  text.erase(0, text.find_last_of("\r\n") + 1);
  text = text.substr(0, kLongestLine);
  std::replace_if(
      text.begin(), text.end(), [](unsigned char c) { return c < 0x20 || c == 0x7f; }, '?');
  return text;
}

// Keeps the child's standard error and tells its last line when the child fails.
int RunTool(const std::vector<std::string>& argv, std::string* complaint) {
  const Fd errors = AboveStandard(Fd(memfd_create("stderr", MFD_CLOEXEC)));
  const ChildSignalGuard guard;
  pid_t child = -1;
  const int error = Spawn(argv, -1, errors.Get(), &child);
  if (error != 0) return CannotRun(error);
  const int result = WaitFor(child);
  if (result == 0 || !errors) return result;
  const int reason = errno;
  const std::string line = LastLine(errors.Get());
  PlatformLog(LOG_ERR, kTag, __LINE__, "%s failed [%d]: %s", argv[0].c_str(), result, line.c_str());
  if (complaint != nullptr) *complaint = line;
  errno = reason;
  return result;
}

struct Pipe {
  Fd reading;
  Fd writing;
};

int MakePipe(Pipe& result) {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) return errno;
  result = {AboveStandard(Fd(ends[0])), AboveStandard(Fd(ends[1]))};
  if (!result.reading || !result.writing) return errno;
  return fcntl(result.reading.Get(), F_SETFL, O_NONBLOCK) == 0 ? 0 : errno;
}

// Collects what a child writes, up to a limit, and drops the rest.
class Collector {
 public:
  Collector(int fd, size_t limit, std::string& output) : fd_(fd), limit_(limit), output_(output) {}

  // One read of what is there. False when nothing is, or at the end.
  bool ReadSome() {
    std::array<char, kChunk> buffer{};
    ssize_t count = 0;
    do {
      count = read(fd_, buffer.data(), buffer.size());
    } while (count < 0 && errno == EINTR);
    if (count == 0) ended_ = true;
    if (count <= 0) return false;
    output_.append(buffer.data(), std::min(static_cast<size_t>(count), limit_ - output_.size()));
    return true;
  }

  // What the child itself left in the pipe, and not what a process behind it goes on writing.
  void Drain() {
    const int capacity = fcntl(fd_, F_GETPIPE_SZ);
    for (int left = capacity; left >= 0 && ReadSome(); left -= kChunk) continue;
  }

  [[nodiscard]] bool Ended() const { return ended_; }

 private:
  int fd_;
  size_t limit_;
  std::string& output_;
  bool ended_ = false;
};

void CollectUntilExit(pid_t child, int fd, Collector& collector) {
  const Fd exit(pidfd_open(child, 0));
  std::array<pollfd, 2> events{{{exit.Get(), POLLIN, 0}, {fd, POLLIN, 0}}};
  while (!collector.Ended()) {
    if (poll(events.data(), events.size(), -1) < 0 && errno != EINTR) return;
    if (events[0].revents != 0) break;
    if (events[1].revents != 0) collector.ReadSome();
  }
  collector.Drain();
}

}  // namespace

void PrepareProcess() {
  int fd = -1;
  do {
    fd = open("/dev/null", O_RDWR);  // the lowest number that is free
  } while (fd >= 0 && fd <= STDERR_FILENO);
  if (fd >= 0) close(fd);
  signal(SIGXFSZ, SIG_IGN);
  signal(SIGPIPE, SIG_IGN);
}

int RunAndCapture(const std::string& program, const KovaArgs& args, size_t limit,
                  std::string& output) {
  output.clear();
  Pipe pipe;
  if (const int error = MakePipe(pipe); error != 0) return CannotRun(error);
  const ChildSignalGuard guard;
  pid_t child = -1;
  const int error = Spawn(Vector(program, args), pipe.writing.Get(), -1, &child);
  if (error != 0) return CannotRun(error);
  pipe.writing = Fd();
  Collector collector(pipe.reading.Get(), limit, output);
  CollectUntilExit(child, pipe.reading.Get(), collector);
  return WaitFor(child);
}

}  // namespace kova::platform

using kova::platform::RunInheriting;
using kova::platform::RunTool;
using kova::platform::Vector;

int KLIBCExec(const std::string& program, const KovaArgs& args) {
  return RunInheriting(Vector(program, args));
}

int KLIBCExecl(const std::string& program, unsigned option, const KovaArgs& args,
               std::string* complaint) {
  const std::vector<std::string> argv = Vector(program, args);
  return option == kKovaExecTool ? RunTool(argv, complaint) : RunInheriting(argv);
}

int KLIBCExecv(const KovaArgs& argv, int flag, std::string* complaint) {
  return flag == 1 ? RunTool(argv, complaint) : RunInheriting(argv);
}
