#include "host_files.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace kova::test {

namespace fs = std::filesystem;

void ResetHost() {
  if (std::getenv("KOVA_SANDBOX") == nullptr) {
    std::fputs("run these tests through tests/sandbox/sandbox\n", stderr);
    std::abort();
  }
  umask(022);
  for (const char* path : {"/usr/kova", "/var/lib/letsencrypt", kCronJob}) fs::remove_all(path);
  fs::create_directories(kArchive);
  fs::permissions(kArchive, fs::perms::owner_all);
  fs::create_directories(fs::path(kCronJob).parent_path());
  WriteFile(kDeviceRecord, R"({"router": "none"})", 0600);
}

void WriteFile(const std::string& path, const std::string& content, mode_t mode) {
  fs::create_directories(fs::path(path).parent_path());
  fs::remove(path);
  std::ofstream(path, std::ios::binary) << content;
  chmod(path.c_str(), mode);
}

void WriteHook(const std::string& name, const std::string& script_body) {
  WriteFile(std::string(kHooks) + "/" + name, "#!/bin/sh\n" + script_body + "\n", 0755);
}

std::string ReadFile(const std::string& path) {
  std::ostringstream content;
  content << std::ifstream(path, std::ios::binary).rdbuf();
  return content.str();
}

std::vector<std::string> ReadLines(const std::string& path) {
  std::vector<std::string> lines;
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) lines.push_back(line);
  return lines;
}

bool Exists(const std::string& path) { return fs::exists(fs::symlink_status(path)); }

mode_t ModeOf(const std::string& path) {
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0) return 0;
  return status.st_mode & 07777;
}

std::vector<std::string> ListFolder(const std::string& path) {
  std::vector<std::string> names;
  if (!fs::is_directory(path)) return names;
  for (const auto& entry : fs::directory_iterator(path)) names.push_back(entry.path().filename());
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace kova::test
