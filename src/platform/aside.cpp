#include "platform/aside.h"

#include <sys/prctl.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <iterator>
#include <string_view>
#include <system_error>
#include <utility>

#include "platform/signals.h"

namespace kova::platform {
namespace {

constexpr int kAnswer = STDERR_FILENO + 1;

// Keeps the standard descriptors, for messages, and the answer's end of the pipe. Files of ours may
// be locked: they must not stay so when we are gone.
void KeepOnly(int answer) {
  closelog();  // or its descriptor would be somebody else's next
  if (dup2(answer, kAnswer) < 0 || close_range(kAnswer + 1, ~0U, 0) != 0) _exit(1);
}

bool Answer(std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = write(kAnswer, text.data(), text.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    text.remove_prefix(static_cast<size_t>(count));
  }
  return true;
}

// `work` answers and says whether that went well.
[[noreturn]] void BeTheChild(int answer, pid_t parent, const std::function<bool()>& work) {
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) (void)std::signal(signal, SIG_DFL);
  if (prctl(PR_SET_PDEATHSIG, SIGKILL, 0, 0, 0) != 0 || getppid() != parent) _exit(1);
  KeepOnly(answer);
  try {
    _exit(work() ? 0 : 1);
  } catch (...) {
    _exit(1);
  }
}

// The child, whose answer then comes by the pipe; negative when there is none.
pid_t Start(Pipe& pipe, const std::function<bool()>& work) {
  if (MakePipe(pipe) != 0) return -1;
  const pid_t parent = getpid();
  const pid_t child = fork();
  if (child == 0) BeTheChild(pipe.writing.Get(), parent, work);
  pipe.writing = Fd();
  return child;
}

// Nothing is left in the memory that the text grows out of.
void ReadInto(int reading, std::string& text) {
  text.resize(TextAside::kLongest + 1);
  size_t length = 0;
  while (length < text.size()) {
    const ssize_t count = read(reading, text.data() + length, text.size() - length);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    length += static_cast<size_t>(count);
  }
  text.resize(length <= TextAside::kLongest ? length : 0);
}

}  // namespace

bool AskAside(const std::function<bool()>& question, std::chrono::milliseconds patience) {
  const ChildSignalGuard guard;
  Pipe pipe;
  const pid_t child = Start(pipe, [&question] { return !question() || Answer("y"); });
  if (child < 0) return question();
  std::string answer;
  const ChildEnd end = WatchChild(child, pipe.reading.Get(), {patience, 1}, answer);
  if (end != ChildEnd::kExited) kill(child, SIGKILL);
  return WaitFor(child) == 0 && answer == "y";
}

bool IsSingleThreaded() {
  std::error_code error;
  const std::filesystem::directory_iterator threads("/proc/self/task", error);
  return !error && std::distance(begin(threads), end(threads)) == 1;
}

TextAside::TextAside(const std::function<std::string()>& work) {
  child_ = Start(pipe_, [&work] { return Answer(work()); });
}

TextAside::~TextAside() {
  if (child_ < 0) return;
  kill(child_, SIGKILL);
  (void)WaitFor(child_);
}

bool TextAside::Take(std::string& text) {
  text.clear();
  if (child_ < 0) return false;
  ThrowIfInterrupted();  // or the wait would be one for taking something back
  const bool ended = AwaitExit(child_);
  ThrowIfInterrupted();
  if (!ended) return false;
  if (WaitFor(std::exchange(child_, -1)) != 0) return false;
  ReadInto(pipe_.reading.Get(), text);
  return !text.empty();
}

}  // namespace kova::platform
