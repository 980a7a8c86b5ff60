#include "scratch.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>

namespace kova::test {

namespace fs = std::filesystem;

Scratch::Scratch() {
  std::string name = "/tmp/platform.XXXXXX";
  folder_ = mkdtemp(name.data());
}

Scratch::~Scratch() { fs::remove_all(folder_); }

void Put(const std::string& path, const std::string& content, mode_t mode) {
  fs::create_directories(fs::path(path).parent_path());
  std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
  ASSERT_EQ(chmod(path.c_str(), mode), 0) << path;
  ASSERT_EQ(Get(path), content);
}

std::string Get(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return "<missing>";
  return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<std::string> NamesIn(const std::string& folder) {
  std::set<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder)) names.insert(entry.path().filename());
  return {names.begin(), names.end()};
}

struct stat StatusOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
  return status;
}

mode_t ModeOf(const std::string& path) { return StatusOf(path).st_mode & 07777; }

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
