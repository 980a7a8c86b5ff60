#include "platform/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <string_view>

#include "platform/error.h"
#include "platform/fd.h"
#include "platform/file_writer.h"

using kova::platform::Fd;
using kova::platform::RecordError;

namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr mode_t kPermissionBits = 07777;

// Opening a pipe that was planted there must not wait for its other end.
constexpr int kReadFlags = O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;

bool IsFolder(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) return false;
  errno = ENOTDIR;
  return S_ISDIR(status.st_mode);
}

// One folder of a path; its parents exist. 0, or an errno.
int EnsureFolder(const std::string& path, mode_t mode) {
  if (IsFolder(path)) return 0;
  const int error = kova::platform::MakeFolder(path, mode);
  if (error != EEXIST) return error;
  return IsFolder(path) ? 0 : ENOTDIR;  // someone else was faster, or it is no folder
}

// Never through a dangling link.
int CreateEmpty(const std::string& path) {
  const Fd file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644));
  return file ? 0 : errno;
}

// Up to `limit` bytes.
int ReadAll(int fd, std::string& content, size_t limit) {
  std::array<char, 16384> buffer{};
  while (content.size() < limit) {
    const ssize_t count = read(fd, buffer.data(), std::min(buffer.size(), limit - content.size()));
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return errno;
    if (count == 0) break;
    content.append(buffer.data(), static_cast<size_t>(count));
  }
  return 0;
}

int ReadRegular(const std::string& path, std::string& content, struct stat& status,
                size_t limit = std::string::npos) {
  const Fd file(open(path.c_str(), kReadFlags));
  if (!file || fstat(file.Get(), &status) != 0) return errno;
  if (S_ISDIR(status.st_mode)) return EISDIR;
  if (!S_ISREG(status.st_mode)) return EINVAL;
  return ReadAll(file.Get(), content, limit);
}

int Failed(int error, int line = __builtin_LINE()) {
  RecordError(error, __builtin_FILE(), line);
  return -1;
}

}  // namespace

bool KLIBCFileExist(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) == 0) return true;
  RecordError(errno);
  return false;
}

bool KLIBCFileCheckDir(const std::string& path) {
  if (IsFolder(path)) return true;
  RecordError(errno);
  return false;
}

int KLIBCFgets(char* buffer, int size, std::FILE* file) {
  if (buffer == nullptr || size <= 0 || file == nullptr) return Failed(EINVAL);
  int length = 0;
  int c = 0;
  errno = 0;
  while (length < size - 1 && c != '\n' && (c = std::getc(file)) != EOF) {
    buffer[length++] = static_cast<char>(c);
  }
  buffer[length] = '\0';
  if (c != EOF || length > 0) return length;
  return std::ferror(file) != 0 ? Failed(errno) : -1;
}

int KLIBCFileTouch(const std::string& path) {
  if (utimensat(AT_FDCWD, path.c_str(), nullptr, 0) == 0) return 0;
  if (errno != ENOENT) return Failed(errno);
  const int error = CreateEmpty(path);
  return error == 0 ? 0 : Failed(error);
}

int KLIBCFileUTF8BomStrip(const std::string& path) {
  // The mark alone: most files have none, and many of them are private keys.
  std::string content;
  struct stat status {};
  int error = ReadRegular(path, content, status, kByteOrderMark.size());
  if (error != 0) return Failed(error);
  if (content != kByteOrderMark) return 0;
  content.clear();
  error = ReadRegular(path, content, status);
  if (error != 0) return Failed(error);
  if (!content.starts_with(kByteOrderMark)) return 0;  // replaced meanwhile
  // A link stays a link: its target is what gets replaced.
  const std::string target = kova::platform::CanonicalPath(path);
  if (target.empty()) return Failed(errno);
  const kova::platform::FileOwner owner{status.st_uid, status.st_gid};
  error =
      kova::platform::ReplaceFile(target, std::string_view(content).substr(kByteOrderMark.size()),
                                  status.st_mode & kPermissionBits, &owner);
  return error == 0 ? 0 : Failed(error);
}

int KOVAFSMkdirP(const std::string& path, int, int, int, int, mode_t mode) {
  if (path.empty()) return Failed(ENOENT);
  size_t end = 0;
  while (end < path.size()) {
    end = std::min(path.find('/', end + 1), path.size());
    const int error = EnsureFolder(path.substr(0, end), mode & kPermissionBits);
    if (error != 0) return Failed(error);
  }
  return 0;
}

namespace kova::platform {

std::string CanonicalPath(const std::string& path) {
  const std::unique_ptr<char, decltype(&std::free)> text(realpath(path.c_str(), nullptr),
                                                         &std::free);
  return text == nullptr ? std::string() : text.get();
}

int MakeFolder(const std::string& path, mode_t mode) {
  if (mkdir(path.c_str(), mode) != 0) return errno;
  return fchmodat(AT_FDCWD, path.c_str(), mode, AT_SYMLINK_NOFOLLOW) == 0 ? 0 : errno;
}

bool ReadWholeFile(const std::string& path, std::string& content) {
  content.clear();
  struct stat status {};
  const int error = ReadRegular(path, content, status);
  if (error == 0) return true;
  content.clear();
  RecordError(error);
  return false;
}

FilePtr OpenToRead(const std::string& path) {
  Fd file(open(path.c_str(), kReadFlags));
  struct stat status {};
  if (!file || fstat(file.Get(), &status) != 0) return nullptr;
  if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) {  // a folder fails when it is read
    errno = EINVAL;
    return nullptr;
  }
  FilePtr stream(fdopen(file.Get(), "r"));
  if (stream != nullptr) (void)file.Release();  // the stream's now
  return stream;
}

}  // namespace kova::platform
