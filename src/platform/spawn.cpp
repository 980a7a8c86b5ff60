#include "platform/spawn.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

#include <cerrno>
#include <string_view>

#include "platform/error.h"
#include "platform/process.h"

namespace kova::platform {
namespace {

constexpr int kFirstFree = STDERR_FILENO + 1;
constexpr std::string_view kPathName = "PATH=";

class Attributes {
 public:
  explicit Attributes(bool own_group) {
    sigset_t all;
    sigset_t none;
    sigfillset(&all);
    sigemptyset(&none);
    posix_spawnattr_init(&value_);
    posix_spawnattr_setsigdefault(&value_, &all);
    posix_spawnattr_setsigmask(&value_, &none);
    int flags = POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK;
    if (own_group) flags |= POSIX_SPAWN_SETPGROUP;  // 0, as it is initialised: its own
    posix_spawnattr_setflags(&value_, static_cast<short>(flags));
  }
  ~Attributes() { posix_spawnattr_destroy(&value_); }
  Attributes(const Attributes&) = delete;
  Attributes& operator=(const Attributes&) = delete;
  [[nodiscard]] const posix_spawnattr_t* Get() const { return &value_; }

 private:
  posix_spawnattr_t value_{};
};

// The child's descriptor table: 0, 1, 2 and nothing else.
class Descriptors {
 public:
  Descriptors(int output, int errors) {
    posix_spawn_file_actions_init(&value_);
    Null(STDIN_FILENO, O_RDONLY);
    output < 0 ? Null(STDOUT_FILENO, O_WRONLY) : Use(output, STDOUT_FILENO);
    // Closed here, or the number now that of a descriptor of our own, which the child will not
    // have: a file that the child opens must not become its standard error.
    const int flags = fcntl(STDERR_FILENO, F_GETFD);
    const bool closed = flags < 0 || (flags & FD_CLOEXEC) != 0;
    if (errors >= 0) {
      Use(errors, STDERR_FILENO);
    } else if (closed) {
      Null(STDERR_FILENO, O_WRONLY);
    }
    Check(posix_spawn_file_actions_addclosefrom_np(&value_, kFirstFree));
  }
  ~Descriptors() { posix_spawn_file_actions_destroy(&value_); }
  Descriptors(const Descriptors&) = delete;
  Descriptors& operator=(const Descriptors&) = delete;

  [[nodiscard]] const posix_spawn_file_actions_t* Get() const { return &value_; }
  [[nodiscard]] int Error() const { return error_; }

 private:
  void Check(int error) {
    if (error_ == 0) error_ = error;
  }
  void Null(int fd, int flags) {
    Check(posix_spawn_file_actions_addopen(&value_, fd, "/dev/null", flags, 0));
  }
  void Use(int from, int fd) { Check(posix_spawn_file_actions_adddup2(&value_, from, fd)); }

  posix_spawn_file_actions_t value_{};
  int error_ = 0;
};

// Ours, with `path` in the place of PATH.
std::vector<char*> EnvironmentWith(std::string& path) {
  std::vector<char*> words = {path.data()};
  for (char** word = environ; word != nullptr && *word != nullptr; ++word) {
    if (!std::string_view(*word).starts_with(kPathName)) words.push_back(*word);
  }
  words.push_back(nullptr);
  return words;
}

}  // namespace

ChildSignalGuard::ChildSignalGuard() {
  struct sigaction standard {};
  standard.sa_handler = SIG_DFL;
  sigaction(SIGCHLD, &standard, &saved_);
}

ChildSignalGuard::~ChildSignalGuard() {
  const int saved_errno = errno;
  sigaction(SIGCHLD, &saved_, nullptr);
  errno = saved_errno;
}

Fd AboveStandard(Fd fd) {
  if (fd.Get() < 0 || fd.Get() >= kFirstFree) return fd;
  return Fd(fcntl(fd.Get(), F_DUPFD_CLOEXEC, kFirstFree));
}

int Spawn(const std::vector<std::string>& argv, const SpawnOptions& options, pid_t* child) {
  if (argv.empty() || !argv[0].starts_with('/')) return EINVAL;
  std::vector<char*> words;
  for (const std::string& word : argv) {
    if (word.find('\0') != std::string::npos) return EINVAL;  // the child would see it cut
    words.push_back(const_cast<char*>(word.c_str()));
  }
  words.push_back(nullptr);
  const Attributes attributes(options.own_group);
  const Descriptors descriptors(options.output, options.errors);
  if (descriptors.Error() != 0) return descriptors.Error();
  std::string path = std::string(kPathName) + kChildPath;
  std::vector<char*> environment = EnvironmentWith(path);
  return posix_spawn(child, words[0], descriptors.Get(), attributes.Get(), words.data(),
                     environment.data());
}

int WaitFor(pid_t child) {
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno == EINTR) continue;
    RecordError(errno);
    return -1;
  }
  if (!WIFEXITED(status)) {
    RecordError(EINTR);
    return -1;
  }
  errno = 0;
  return WEXITSTATUS(status);
}

}  // namespace kova::platform
