#include "platform/staging.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <memory>
#include <string_view>

#include "platform/fd.h"

namespace kova::platform {
namespace {

constexpr std::string_view kAlphabet =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
constexpr std::string_view kSuffix = ".kova";
constexpr size_t kRandomLength = 6;

struct CloseFolder {
  void operator()(DIR* folder) const { closedir(folder); }
};

// ".NAME.", of which as much as a name has room for.
std::string Prefix(const std::string& path) {
  constexpr size_t kRoom = NAME_MAX - 2 - kRandomLength - kSuffix.size();
  return "." + path.substr(path.rfind('/') + 1).substr(0, kRoom) + ".";
}

bool IsStagingName(std::string_view name, std::string_view prefix) {
  return name.size() == prefix.size() + kRandomLength + kSuffix.size() &&
         name.starts_with(prefix) && name.ends_with(kSuffix) &&
         name.substr(prefix.size(), kRandomLength).find_first_not_of(kAlphabet) ==
             std::string_view::npos;
}

// The lock is had only when the writer is gone. One that ended well meanwhile has given the file
// its proper name, and then this one is not the file's any more.
void RemoveIfNobodys(const std::string& file) {
  const Fd held(open(file.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct stat status {};
  if (!held || fstat(held.Get(), &status) != 0 || !S_ISREG(status.st_mode)) return;
  if (status.st_uid != geteuid() && geteuid() != 0) return;
  if (flock(held.Get(), LOCK_EX | LOCK_NB) != 0) return;
  if (BearsName(held.Get(), file)) unlink(file.c_str());
}

}  // namespace

std::string FolderOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

std::string StagingName(const std::string& path) {
  std::array<unsigned char, kRandomLength> bytes{};
  if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) return {};
  std::string name = FolderOf(path) + "/" + Prefix(path);
  for (const unsigned char byte : bytes) name += kAlphabet[byte % kAlphabet.size()];
  return name + std::string(kSuffix);
}

bool BearsName(int fd, const std::string& name) {
  struct stat own {};
  struct stat named {};
  return fstat(fd, &own) == 0 && lstat(name.c_str(), &named) == 0 && own.st_dev == named.st_dev &&
         own.st_ino == named.st_ino;
}

void RemoveLeftovers(const std::string& path) {
  const std::string folder = FolderOf(path);
  const std::string prefix = Prefix(path);
  const std::unique_ptr<DIR, CloseFolder> listing(opendir(folder.c_str()));
  if (listing == nullptr) return;
  while (const dirent* entry = readdir(listing.get())) {
    if (IsStagingName(entry->d_name, prefix)) RemoveIfNobodys(folder + "/" + entry->d_name);
  }
}

}  // namespace kova::platform
