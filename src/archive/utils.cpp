#include "archive/utils.h"

#include <cerrno>
#include <cstdio>

#include "archive/private_copy.h"
#include "base/log.h"
#include "platform/error.h"
#include "platform/files.h"
#include "platform/process.h"
#include "self_signed/log_tag.h"

namespace kova::cert_archive {
namespace {

bool RemoveTree(const std::string& path) {
  if (KLIBCExec("/bin/rm", {"-rf", path}) == 0) return true;
  LogError(kTag, "Failed to remove %s [%d]", path.c_str(), errno);
  return false;
}

bool Rename(const std::string& from, const std::string& to) {
  if (std::rename(from.c_str(), to.c_str()) == 0) return true;
  LogError(kTag, "Failed to move %s to %s [%d]", from.c_str(), to.c_str(), errno);
  return false;
}

bool CopyTree(const std::string& from, const std::string& to) {
  if (KLIBCExec("/bin/cp", {"-arp", from, to}) == 0) return true;
  LogError(kTag, "Failed to copy %s to %s [%d]", from.c_str(), to.c_str(), errno);
  return false;
}

bool FailedToCopy(const std::string& source) {
  LogError(kTag, "Failed to copy [%s].%s", source.c_str(), ErrorTriple().c_str());
  return false;
}

void PutBack(const std::string& backup, const std::string& destination) {
  if (RemoveTree(destination)) (void)Rename(backup, destination);
}

}  // namespace

bool RemoveDirectory(const std::string& path) {
  if (!KLIBCFileCheckDir(path)) {
    LogError(kTag, "%s is not a valid directory", path.c_str());
    return false;
  }
  return RemoveTree(path);
}

bool CleanDirectory(const std::string& path, mode_t mode) {
  if (KLIBCFileCheckDir(path) && !RemoveTree(path)) return false;
  if (KOVAFSMkdirP(path, 0, 1, 0, 0, mode) >= 0) return true;
  LogError(kTag, "Failed to create %s", path.c_str());
  return false;
}

bool MoveDirectory(const std::string& source, const std::string& destination) {
  if (!KLIBCFileCheckDir(source)) {
    LogError(kTag, "%s is not a valid directory", source.c_str());
    return false;
  }
  if (source == destination) {
    LogDebugPriority(kTag, "skip move directory, due to source equals to destination [%s]",
                     source.c_str());
    return true;
  }
  const std::string backup = destination + ".bak";
  // Deliberate: a backup that cannot be removed is put in the place of the destination.
  if (!RemoveTree(backup)) {
    PutBack(backup, destination);
    return false;
  }
  if (KLIBCFileCheckDir(destination) && !CopyTree(destination, backup)) return false;
  if (!RemoveTree(destination) || !Rename(source, destination)) {
    PutBack(backup, destination);
    return false;
  }
  (void)RemoveTree(backup);  // a leftover does no harm
  return true;
}

bool CopyOneFile(const std::string& source_folder, const std::string& destination_folder,
                 const std::string& name, uid_t uid, gid_t gid) {
  const std::string source = source_folder + "/" + name;
  const std::string copy = destination_folder + "/" + name;
  const int status = CopyPrivately(source, copy);
  if (status < 0) return FailedToCopy(source);
  // A copy that is not there shows here; that the tool said so is not asked first.
  if (!HandOver(copy, uid, gid)) {
    LogError(kTag, "Failed to chmod chown. [%s]", copy.c_str());
    return false;
  }
  if (status == 0) return true;
  platform::RecordError(EIO);  // half a key must not reach a service
  return FailedToCopy(source);
}

}  // namespace kova::cert_archive
