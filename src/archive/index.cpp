#include "archive/index.h"

#include <sys/stat.h>

#include <cerrno>

#include "archive/paths.h"
#include "base/json.h"
#include "base/log.h"
#include "platform/error.h"
#include "platform/file_writer.h"
#include "platform/files.h"
#include "self_signed/log_tag.h"

namespace kova::cert_archive {
namespace {

constexpr mode_t kNewIndexMode = 0600;

// Mode and owner stay those of the index that is replaced: others may read it.
int StageIndex(const std::string& text) {
  struct stat status {};
  if (stat(kIndexPath, &status) != 0) {
    return platform::StageFile(kIndexStagingPath, text, kNewIndexMode);
  }
  const platform::FileOwner owner{status.st_uid, status.st_gid};
  return platform::StageFile(kIndexStagingPath, text, status.st_mode & 0777, &owner);
}

bool IsMissing() {
  struct stat status {};
  return lstat(kIndexPath, &status) != 0 && errno == ENOENT;
}

bool ReadForEdit(Json::Value& info, MissingIndex missing) {
  if (missing == MissingIndex::kIsEmpty && IsMissing()) {
    info = Json::Value(Json::objectValue);
    return true;
  }
  return ReadIndexObject(info);
}

}  // namespace

IndexLock::IndexLock(std::chrono::seconds timeout) : FileLock(kTag, kIndexLockPath, timeout) {}

void LogBrokenIndex(Site site) {
  LogError(site, "Broken [%s].%s", kIndexPath, ErrorTriple().c_str());
}

bool ReadIndex(Json::Value& info) {
  if (JsonFromFile(kIndexPath, info)) return true;
  // A file that is no JSON fails without a system error; the triple is not to show an older one.
  if (errno == 0) platform::RecordError(EBADMSG);
  LogBrokenIndex(kTag);
  return false;
}

bool ReadIndexObject(Json::Value& info) {
  if (!ReadIndex(info)) return false;
  if (info.isObject()) return true;
  platform::RecordError(EBADMSG);
  LogBrokenIndex(kTag);
  return false;
}

bool WriteIndex(const Json::Value& info) {
  const std::string text = JsonStyledText(info);
  if (StageIndex(text) != 0) {
    LogError(kTag, "Failed to write [%s] to [%s].", JsonToString(info).c_str(), kIndexStagingPath);
    return false;
  }
  if (const int error = platform::CommitStaged(kIndexStagingPath, kIndexPath); error != 0) {
    LogError(kTag, "Failed to move %s to %s", kIndexStagingPath, kIndexPath);
    return false;
  }
  return true;
}

bool EditIndex(const IndexLock& lock, const IndexEditor& edit, MissingIndex missing) {
  Json::Value info;
  if (!lock.Held() || !ReadForEdit(info, missing)) return false;
  switch (edit(info)) {
    case IndexEdit::kLeave:
      return true;
    case IndexEdit::kRefuse:
      return false;
    case IndexEdit::kWrite:
      break;
  }
  if (WriteIndex(info)) return true;
  LogError(kTag, "Failed to write [%s].", kIndexPath);
  return false;
}

bool EditIndex(std::chrono::seconds timeout, const IndexEditor& edit, MissingIndex missing) {
  const IndexLock lock(timeout);
  return EditIndex(lock, edit, missing);
}

}  // namespace kova::cert_archive
