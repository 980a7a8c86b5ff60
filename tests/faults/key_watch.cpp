#include "key_watch.h"

#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <iterator>

namespace fault_point {
namespace {

constexpr mode_t kOthersRead = S_IRGRP | S_IROTH;
constexpr mode_t kOthersPass = S_IXGRP | S_IXOTH;

bool OthersReach(const std::string& path) {
  for (size_t slash = path.find('/', 1); slash != std::string::npos;
       slash = path.find('/', slash + 1)) {
    struct stat folder;
    if (stat(path.substr(0, slash).c_str(), &folder) != 0) return false;
    if ((folder.st_mode & kOthersPass) == 0) return false;
  }
  return true;
}

bool HoldsKey(const std::string& path) {
  std::ifstream file(path);
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  const bool is_jwk =
      text.find("\"kty\"") != std::string::npos && text.find("\"d\"") != std::string::npos;
  return is_jwk || text.find("PRIVATE KEY-----") != std::string::npos;
}

}  // namespace

bool IsExposedKey(const std::string& path) {
  struct stat file;
  if (lstat(path.c_str(), &file) != 0 || !S_ISREG(file.st_mode)) return false;
  return (file.st_mode & kOthersRead) != 0 && OthersReach(path) && HoldsKey(path);
}

void KeyWatch::Expect(pid_t thread, std::vector<std::string> paths) {
  paths_[thread] = std::move(paths);
}

std::vector<std::string> KeyWatch::Look(pid_t thread) {
  std::vector<std::string> exposed;
  for (const auto& [_, paths] : paths_) {
    std::copy_if(paths.begin(), paths.end(), std::back_inserter(exposed), IsExposedKey);
  }
  paths_.erase(thread);
  return exposed;
}

}  // namespace fault_point
