#include "base/unfinished_folder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>

#include "base/log.h"

namespace kova {
namespace {

namespace fs = std::filesystem;

constexpr char kTag[] = "utils";
constexpr char kMarkEnd[] = ".unfinished";
constexpr mode_t kFolderMode = 0700;
constexpr size_t kNameLength = 6;

std::string MarkOf(const fs::path& folder) {
  return folder.parent_path() / ("." + folder.filename().string() + kMarkEnd);
}

// The folder that a mark speaks of, or an empty path: the name is no mark's.
fs::path FolderOf(const fs::path& mark) {
  const std::string name = mark.filename();
  if (name.size() != 1 + kNameLength + std::string(kMarkEnd).size()) return {};
  if (name.front() != '.' || !name.ends_with(kMarkEnd)) return {};
  return mark.parent_path() / name.substr(1, kNameLength);
}

bool Lock(int mark) { return flock(mark, LOCK_EX | LOCK_NB) == 0; }

// A clean-up may have come between making a mark and locking it.
bool IsLinked(int mark) {
  struct stat status {};
  return fstat(mark, &status) == 0 && status.st_nlink > 0;
}

bool HasNoMark(int reason) {
  return reason == ENOENT || reason == ENOTDIR || reason == ENAMETOOLONG;
}

// A mark that cannot be removed is made void instead.
bool Void(const std::string& mark) {
  if (unlink(mark.c_str()) == 0 || HasNoMark(errno)) return true;
  const platform::Fd file(open(mark.c_str(), O_WRONLY | O_CLOEXEC | O_NOFOLLOW));
  return file && write(file.Get(), "kept\n", 5) == 5;
}

bool IsVoid(int mark) {
  struct stat status {};
  return fstat(mark, &status) != 0 || status.st_size > 0;
}

bool RemoveTree(const fs::path& path) {
  std::error_code error;
  fs::remove_all(path, error);
  if (error) LogError(kTag, "Failed to remove %s [%d]", path.c_str(), error.value());
  return !error;
}

// The folder goes first: the mark is what knows of it.
void RemoveLeftover(const fs::path& mark, const std::string& complete) {
  const platform::Fd file(open(mark.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
  if (!file || !Lock(file.Get()) || !IsLinked(file.Get())) return;
  const fs::path folder = FolderOf(mark);
  std::error_code error;
  const bool stays =
      IsVoid(file.Get()) || (!complete.empty() && fs::exists(folder / complete, error));
  if (stays || RemoveTree(folder)) unlink(mark.c_str());
}

}  // namespace

UnfinishedFolder::~UnfinishedFolder() {
  if (path_.empty()) return;
  const int reason = errno;
  if (RemoveTree(path_)) unlink(MarkOf(path_).c_str());
  errno = reason;
}

bool UnfinishedFolder::Mark(const std::string& parent) {
  std::string mark = parent + "/.XXXXXX" + kMarkEnd;
  mark_ = platform::Fd(mkostemps(mark.data(), sizeof kMarkEnd - 1, O_CLOEXEC));
  if (!mark_) return false;
  if (Lock(mark_.Get()) && IsLinked(mark_.Get())) {
    path_ = FolderOf(mark);
    return true;
  }
  errno = EAGAIN;
  return false;
}

bool UnfinishedFolder::Make(const std::string& parent) {
  constexpr int kAttempts = 100;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    if (!Mark(parent)) {
      if (errno == EAGAIN) continue;
      return false;
    }
    if (mkdir(path_.c_str(), kFolderMode) == 0) return true;
    const int reason = errno;
    unlink(MarkOf(path_).c_str());
    path_.clear();  // what bears that name is not ours
    errno = reason;
    if (reason != EEXIST) return false;
  }
  return false;
}

bool UnfinishedFolder::Keep() {
  if (!Void(MarkOf(path_))) return false;
  path_.clear();
  mark_ = {};
  return true;
}

void UnfinishedFolder::LeaveMarked() {
  path_.clear();
  (void)mark_.Release();
}

bool KeepUnfinished(const std::string& folder) { return Void(MarkOf(folder)); }

void MarkUnfinished(const std::string& folder) {
  constexpr int kCreate = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
  const platform::Fd mark(open(MarkOf(folder).c_str(), kCreate, S_IRUSR | S_IWUSR));
}

void RemoveUnfinished(const std::string& parent, const std::string& complete) {
  std::error_code error;
  for (fs::directory_iterator entry(parent, error), end; !error && entry != end;
       entry.increment(error)) {
    if (!FolderOf(entry->path()).empty()) RemoveLeftover(entry->path(), complete);
  }
}

}  // namespace kova
