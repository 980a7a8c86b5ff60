// A folder, a child process, a umask for the length of a test.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <functional>
#include <string>

namespace kova::test {

// A fresh folder below /tmp, removed with all that is in it.
class Scratch {
 public:
  Scratch();
  ~Scratch();
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;
  [[nodiscard]] std::string Path(const std::string& name) const { return folder_ + "/" + name; }
  [[nodiscard]] const std::string& Folder() const { return folder_; }

 private:
  std::string folder_;
};

struct stat StatusOf(const std::string& path);  // of the file itself, not its target

// Runs a shell command of a test and fails the test when it fails.
void Shell(const std::string& command);

// Runs `body` in a child process of its own (for things that cannot be undone) and returns the
// status it ends with, or 128 plus the signal.
int InChild(const std::function<int()>& body);

// The process's umask for the life of the object.
class Umask {
 public:
  explicit Umask(mode_t mask) : previous_(umask(mask)) {}
  ~Umask() { umask(previous_); }
  Umask(const Umask&) = delete;
  Umask& operator=(const Umask&) = delete;

 private:
  mode_t previous_;
};

}  // namespace kova::test
