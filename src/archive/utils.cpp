#include "archive/utils.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "archive/paths.h"
#include "base/log.h"
#include "platform/error.h"
#include "platform/fd.h"
#include "platform/files.h"
#include "platform/process.h"

namespace kova::cert_archive {
namespace {

Status RemoveTree(const std::string& path) {
  if (KLIBCExec("/bin/rm", {"-rf", path}) == 0) return {};
  LogError(kTag, "Failed to remove %s [%d]", path.c_str(), errno);
  return Status::Failed("Failed to remove", path, ErrorWords(errno));
}

Status Rename(const std::string& from, const std::string& to) {
  if (std::rename(from.c_str(), to.c_str()) == 0) return {};
  LogError(kTag, "Failed to move %s to %s [%d]", from.c_str(), to.c_str(), errno);
  return Status::Failed("Failed to move", from + " to " + to, ErrorWords(errno));
}

Status CopyTree(const std::string& from, const std::string& to) {
  if (KLIBCExec("/bin/cp", {"-arp", from, to}) == 0) return {};
  LogError(kTag, "Failed to copy %s to %s [%d]", from.c_str(), to.c_str(), errno);
  return Status::Failed("Failed to copy", from + " to " + to, ErrorWords(errno));
}

Status NotAFolder(const std::string& path) {
  LogError(kTag, "%s is not a valid directory", path.c_str());
  return Status::Failed(path + " is not a valid directory");
}

Status FailedToCopy(const std::string& source) {
  LogError(kTag, "Failed to copy [%s].%s", source.c_str(), ErrorTriple().c_str());
  return Status::FailedCall("Failed to copy", "[" + source + "]");
}

// The copy is open to root alone, whatever the mode of the source. 0; the tool's status when it
// could not copy all of the file: there may be no copy, or half of one (think of a full disk);
// negative when the tool could not be run or was killed.
int CopyPrivately(const std::string& source, const std::string& copy) {
  const ScopedUmask only_root(kPrivateUmask);
  return KLIBCExec("/bin/cp", {"-f", source, copy});
}

// Mode 0400, then the owner; flushed to the disk, since the folder is about to replace another.
bool HandOver(const std::string& file, uid_t uid, gid_t gid) {
  const platform::Fd opened(open(file.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
  return opened && fchmod(opened.Get(), S_IRUSR) == 0 && fchown(opened.Get(), uid, gid) == 0 &&
         fsync(opened.Get()) == 0;
}

// What failed before is what is told; what fails here is only logged. Without a backup there is
// nothing to put back, and the destination is all there is.
Status PutBack(const std::string& backup, const std::string& destination, Status why) {
  if (!KLIBCFileCheckDir(backup)) return why;
  if (RemoveTree(destination)) (void)Rename(backup, destination);
  return why;
}

}  // namespace

Status RemoveDirectory(const std::string& path) {
  return KLIBCFileCheckDir(path) ? RemoveTree(path) : NotAFolder(path);
}

Status CleanDirectory(const std::string& path, mode_t mode) {
  if (KLIBCFileCheckDir(path)) {
    if (Status removed = RemoveTree(path); !removed) return removed;
  }
  if (KOVAFSMkdirP(path, 0, 1, 0, 0, mode) >= 0) return {};
  LogError(kTag, "Failed to create %s", path.c_str());
  return Status::FailedCall("Failed to create", path);
}

Status MoveDirectory(const std::string& source, const std::string& destination) {
  if (!KLIBCFileCheckDir(source)) return NotAFolder(source);
  if (source == destination) {
    LogDebugPriority(kTag, "skip move directory, due to source equals to destination [%s]",
                     source.c_str());
    return {};
  }
  const std::string backup = destination + ".bak";
  // Deliberate: a backup that cannot be removed is put in the place of the destination.
  if (Status removed = RemoveTree(backup); !removed) return PutBack(backup, destination, removed);
  if (KLIBCFileCheckDir(destination)) {
    if (Status copied = CopyTree(destination, backup); !copied) {
      (void)RemoveTree(backup);  // half of one is worse than none
      return copied;
    }
  }
  Status moved = RemoveTree(destination);
  if (moved) moved = Rename(source, destination);
  if (!moved) return PutBack(backup, destination, moved);
  (void)RemoveTree(backup);  // a leftover does no harm
  return {};
}

Status CopyOneFile(const std::string& source_folder, const std::string& destination_folder,
                   const std::string& name, uid_t uid, gid_t gid) {
  const std::string source = source_folder + "/" + name;
  const std::string copy = destination_folder + "/" + name;
  const int status = CopyPrivately(source, copy);
  if (status < 0) return FailedToCopy(source);
  // A copy that is not there shows here; that the tool said so is not asked first.
  if (!HandOver(copy, uid, gid)) {
    const int error = errno;
    LogError(kTag, "Failed to chmod chown. [%s]", copy.c_str());
    return Status::Failed("Failed to chmod chown.", "[" + copy + "]", ErrorWords(error));
  }
  if (status == 0) return {};
  platform::RecordError(EIO);  // half a key must not reach a service
  return FailedToCopy(source);
}

}  // namespace kova::cert_archive
