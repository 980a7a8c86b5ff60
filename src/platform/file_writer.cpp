#include "platform/file_writer.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "platform/fd.h"
#include "platform/staging.h"

namespace kova::platform {
namespace {

constexpr int kCreateAnew = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY;
constexpr mode_t kFirstMode = S_IRUSR | S_IWUSR;
constexpr int kNameAttempts = 100;

struct Draft {
  std::string_view content;
  mode_t mode;
  const FileOwner* owner;
};

int WriteAll(int fd, std::string_view content) {
  while (!content.empty()) {
    const ssize_t written = write(fd, content.data(), content.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return errno;
    if (written == 0) return EIO;
    content.remove_prefix(static_cast<size_t>(written));
  }
  return 0;
}

// Everything between an empty new file and a finished one. Owner before mode, both before the
// first byte.
int Fill(int fd, const Draft& draft) {
  if (draft.owner != nullptr && fchown(fd, draft.owner->uid, draft.owner->gid) != 0) return errno;
  if (fchmod(fd, draft.mode) != 0) return errno;
  if (const int error = WriteAll(fd, draft.content); error != 0) return error;
  return fsync(fd) == 0 ? 0 : errno;
}

WriteResult Untouched(int error) { return {error, /*in_place=*/false}; }

Fd OpenFolderOf(const std::string& path) {
  return Fd(open(FolderOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

// Some file systems have no such call for folders.
WriteResult Flush(const Fd& folder) {
  const bool done = fsync(folder.Get()) == 0 || errno == EINVAL || errno == ENOTSUP;
  return {done ? 0 : errno, /*in_place=*/true};
}

WriteResult Rename(const std::string& staging, const std::string& path, const Fd& folder) {
  if (std::rename(staging.c_str(), path.c_str()) == 0) return Flush(folder);
  const int error = errno;
  unlink(staging.c_str());
  return Untouched(error);
}

bool IsThere(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0;
}

// A name for a file that has none. 0, or an errno.
int Link(const Fd& file, const std::string& name) {
  if (linkat(file.Get(), "", AT_FDCWD, name.c_str(), AT_EMPTY_PATH) == 0) return 0;
  if (errno != ENOENT) return errno;
  // As it is for who may not read every file.
  const std::string self = "/proc/self/fd/" + std::to_string(file.Get());
  return linkat(AT_FDCWD, self.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) == 0 ? 0 : errno;
}

// Calls `give` with one staging name after the other until one was free. Its result.
template <typename Give>
int WithStagingName(const std::string& path, std::string& staging, Give give) {
  for (int attempt = 0; attempt < kNameAttempts; ++attempt) {
    staging = StagingName(path);
    if (staging.empty()) return errno;
    if (const int error = give(staging); error != EEXIST) return error;
  }
  return EEXIST;
}

// The finished file takes its name, or its predecessor's place.
WriteResult Publish(const Fd& file, const std::string& path) {
  // Opened first: what keeps the folder from being flushed is to be known before.
  const Fd folder = OpenFolderOf(path);
  if (!folder) return Untouched(errno);
  if (!IsThere(path)) {
    const int error = Link(file, path);
    if (error == 0) return Flush(folder);
    if (error != EEXIST) return Untouched(error);
  }
  RemoveLeftovers(path);
  if (flock(file.Get(), LOCK_EX | LOCK_NB) != 0) return Untouched(errno);
  std::string staging;
  const int error =
      WithStagingName(path, staging, [&](const std::string& name) { return Link(file, name); });
  return error == 0 ? Rename(staging, path, folder) : Untouched(error);
}

// Where every file has a name from the start.
WriteResult ReplaceByName(const std::string& path, const Draft& draft) {
  const Fd folder = OpenFolderOf(path);
  if (!folder) return Untouched(errno);
  RemoveLeftovers(path);
  Fd file;
  std::string staging;
  int error = WithStagingName(path, staging, [&](const std::string& name) {
    file = Fd(open(name.c_str(), kCreateAnew, kFirstMode));
    if (!file) return errno;
    // Another writer may have taken it for a leftover before it was held.
    const bool ours = flock(file.Get(), LOCK_EX | LOCK_NB) == 0 && BearsName(file.Get(), name);
    return ours ? 0 : EEXIST;
  });
  if (error != 0) return Untouched(error);
  error = Fill(file.Get(), draft);
  if (error == 0) return Rename(staging, path, folder);
  unlink(staging.c_str());
  return Untouched(error);
}

bool KnowsNoNamelessFiles(int error) {
  return error == EOPNOTSUPP || error == EISDIR || error == EINVAL;
}

}  // namespace

WriteResult ReplaceFile(const std::string& path, std::string_view content, mode_t mode,
                        const FileOwner* owner) {
  const Draft draft{content, mode, owner};
  const Fd file(open(FolderOf(path).c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, kFirstMode));
  if (!file && KnowsNoNamelessFiles(errno)) return ReplaceByName(path, draft);
  if (!file) return Untouched(errno);
  if (const int error = Fill(file.Get(), draft); error != 0) return Untouched(error);
  return Publish(file, path);
}

int StageFile(const std::string& staging, std::string_view content, mode_t mode,
              const FileOwner* owner) {
  if (unlink(staging.c_str()) != 0 && errno != ENOENT) return errno;
  Fd file(open(staging.c_str(), kCreateAnew, kFirstMode));
  if (!file) return errno;
  int error = Fill(file.Get(), {content, mode, owner});
  if (const int closing = file.Close(); error == 0) error = closing;
  if (error != 0) unlink(staging.c_str());
  return error;
}

WriteResult CommitStaged(const std::string& staging, const std::string& path) {
  const Fd folder = OpenFolderOf(path);
  if (!folder) return Untouched(errno);
  if (std::rename(staging.c_str(), path.c_str()) != 0) return Untouched(errno);
  return Flush(folder);
}

}  // namespace kova::platform
