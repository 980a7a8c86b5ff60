#include "platform/process.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <syslog.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <utility>

#include "platform/error.h"
#include "platform/spawn.h"

namespace kova::platform {
namespace {

constexpr char kTag[] = "process";
constexpr size_t kLongestLine = 512;

int CannotRun(int error, int line = __builtin_LINE()) {
  RecordError(error, __builtin_FILE(), line);
  return -1;
}

std::vector<std::string> Vector(const std::string& program, const KovaArgs& args) {
  std::vector<std::string> argv = {program};
  argv.insert(argv.end(), args.begin(), args.end());
  return argv;
}

// What becomes of a child when the run is to end before it.
enum class WhenCut { kKill, kLeave };

int WaitUnlessCut(pid_t child, WhenCut when_cut) {
  if (AwaitExit(child)) return WaitFor(child);
  if (when_cut == WhenCut::kKill) {
    kill(child, SIGKILL);
    (void)WaitFor(child);
  }
  return CannotRun(EINTR);
}

int RunInheriting(const std::vector<std::string>& argv, WhenCut when_cut) {
  const ChildSignalGuard guard;
  pid_t child = -1;
  const int error = Spawn(argv, {}, &child);
  return error != 0 ? CannotRun(error) : WaitUnlessCut(child, when_cut);
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
  const int error = Spawn(argv, {-1, errors.Get(), /*own_group=*/false}, &child);
  if (error != 0) return CannotRun(error);
  const int result = WaitUnlessCut(child, WhenCut::kKill);
  if (result == 0 || !errors) return result;
  const int reason = errno;
  const std::string line = LastLine(errors.Get());
  PlatformLog(LOG_ERR, kTag, __LINE__, "%s failed [%d]: %s", argv[0].c_str(), result, line.c_str());
  if (complaint != nullptr) *complaint = line;
  errno = reason;
  return result;
}

constexpr int kNoError = 0;

// The errno of a child that did not end by itself.
int ErrorOf(ChildEnd end) {
  switch (end) {
    case ChildEnd::kExited:
      return kNoError;
    case ChildEnd::kTooLate:
      return ETIMEDOUT;
    case ChildEnd::kTooMuch:
      return EMSGSIZE;
    case ChildEnd::kInterrupted:
      return EINTR;
  }
  return EINVAL;
}

int WaitWithin(const ChildLimits& limits, pid_t child, int reading, std::string& written) {
  const ChildEnd end = WatchChild(child, reading, limits, written);
  if (end == ChildEnd::kExited) return WaitFor(child);
  kill(-child, SIGKILL);
  (void)WaitFor(child);
  return CannotRun(ErrorOf(end));
}

}  // namespace

void PrepareProcess() {
  int fd = -1;
  do {
    fd = open("/dev/null", O_RDWR);  // the lowest number that is free
  } while (fd >= 0 && fd <= STDERR_FILENO);
  if (fd >= 0) close(fd);
  (void)signal(SIGXFSZ, SIG_IGN);
  (void)signal(SIGPIPE, SIG_IGN);
}

int RunWithin(const ChildLimits& limits, const std::string& program, const KovaArgs& args,
              std::string* output) {
  std::string written;
  Pipe pipe;
  const int pipe_error = output == nullptr ? 0 : MakePipe(pipe);
  if (pipe_error != 0) return CannotRun(pipe_error);
  const ChildSignalGuard guard;
  pid_t child = -1;
  const int error =
      Spawn(Vector(program, args), {pipe.writing.Get(), -1, /*own_group=*/true}, &child);
  if (error == 0) pipe.writing = Fd();
  const int result =
      error == 0 ? WaitWithin(limits, child, pipe.reading.Get(), written) : CannotRun(error);
  if (output != nullptr) *output = std::move(written);
  return result;
}

}  // namespace kova::platform

using kova::platform::RunInheriting;
using kova::platform::RunTool;
using kova::platform::Vector;
using kova::platform::WhenCut;

int KLIBCExec(const std::string& program, const KovaArgs& args) {
  return RunInheriting(Vector(program, args), WhenCut::kKill);
}

int KLIBCExecl(const std::string& program, unsigned option, const KovaArgs& args,
               std::string* complaint) {
  const std::vector<std::string> argv = Vector(program, args);
  return option == kKovaExecTool ? RunTool(argv, complaint) : RunInheriting(argv, WhenCut::kLeave);
}

int KLIBCExecv(const KovaArgs& argv, int flag, std::string* complaint) {
  return flag == 1 ? RunTool(argv, complaint) : RunInheriting(argv, WhenCut::kKill);
}
