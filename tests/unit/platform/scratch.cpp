#include "scratch.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

namespace kova::test {

namespace fs = std::filesystem;

Scratch::Scratch() {
  std::string name = "/tmp/platform.XXXXXX";
  folder_ = mkdtemp(name.data());
}

Scratch::~Scratch() { fs::remove_all(folder_); }

struct stat StatusOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
  return status;
}

void Shell(const std::string& command) {
  ASSERT_EQ(std::system(command.c_str()), 0) << command;  // NOLINT: a test's own words
}

int InChild(const std::function<int()>& body) {
  const pid_t child = fork();
  if (child == 0) _exit(body());
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace kova::test
