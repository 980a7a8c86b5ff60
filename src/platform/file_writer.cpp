#include "platform/file_writer.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>

#include "platform/fd.h"

namespace kova::platform {
namespace {

constexpr int kCreateAnew = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY;
constexpr int kNameAttempts = 100;

// ".XXXXXX", unpredictable, so that nobody can sit on the name.
std::string RandomSuffix() {
  static constexpr char kAlphabet[] =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
  std::array<unsigned char, 6> bytes{};
  if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) return {};
  std::string suffix = ".";
  for (const unsigned char byte : bytes) suffix += kAlphabet[byte % (sizeof kAlphabet - 1)];
  return suffix;
}

// A new file beside `path`, and its name. Sets errno when it returns nothing.
Fd OpenStaging(const std::string& path, std::string& staging) {
  for (int attempt = 0; attempt < kNameAttempts; ++attempt) {
    const std::string suffix = RandomSuffix();
    if (suffix.empty()) return {};
    staging = path + suffix;
    Fd file(open(staging.c_str(), kCreateAnew, S_IRUSR | S_IWUSR));
    if (file || errno != EEXIST) return file;
  }
  return {};
}

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
int Fill(Fd file, std::string_view content, mode_t mode, const FileOwner* owner) {
  if (owner != nullptr && fchown(file.Get(), owner->uid, owner->gid) != 0) return errno;
  if (fchmod(file.Get(), mode) != 0) return errno;
  if (const int error = WriteAll(file.Get(), content); error != 0) return error;
  if (fsync(file.Get()) != 0) return errno;
  return file.Close();
}

int FillOrRemove(Fd file, const std::string& staging, std::string_view content, mode_t mode,
                 const FileOwner* owner) {
  const int error = Fill(std::move(file), content, mode, owner);
  if (error != 0) unlink(staging.c_str());
  return error;
}

std::string FolderOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

}  // namespace

int ReplaceFile(const std::string& path, std::string_view content, mode_t mode,
                const FileOwner* owner) {
  std::string staging;
  Fd file = OpenStaging(path, staging);
  if (!file) return errno;
  int error = FillOrRemove(std::move(file), staging, content, mode, owner);
  if (error == 0) error = CommitStaged(staging, path);
  if (error != 0) unlink(staging.c_str());
  return error;
}

int StageFile(const std::string& staging, std::string_view content, mode_t mode,
              const FileOwner* owner) {
  if (unlink(staging.c_str()) != 0 && errno != ENOENT) return errno;
  Fd file(open(staging.c_str(), kCreateAnew, S_IRUSR | S_IWUSR));
  if (!file) return errno;
  return FillOrRemove(std::move(file), staging, content, mode, owner);
}

int CommitStaged(const std::string& staging, const std::string& path) {
  // Opened first: what keeps the folder from being flushed is to be known before the rename.
  const Fd folder(open(FolderOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder) return errno;
  if (std::rename(staging.c_str(), path.c_str()) != 0) return errno;
  // Some file systems have no such call for folders.
  if (fsync(folder.Get()) != 0 && errno != EINVAL && errno != ENOTSUP) return errno;
  return 0;
}

}  // namespace kova::platform
