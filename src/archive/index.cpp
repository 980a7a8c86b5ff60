#include "archive/index.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <string_view>

#include "archive/paths.h"
#include "base/files.h"
#include "base/json.h"
#include "base/log.h"
#include "platform/error.h"
#include "platform/file_writer.h"
#include "platform/files.h"

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

Status ReadForEdit(Json::Value& info, MissingIndex missing) {
  if (missing == MissingIndex::kIsEmpty && IsMissing()) {
    info = Json::Value(Json::objectValue);
    return {};
  }
  return ReadIndexObject(info);
}

// Behind the closing quote of the text whose opening quote is at `begin`.
size_t EndOfText(const std::string& json, size_t begin) {
  size_t end = begin + 1;
  while (end < json.size() && json[end] != '"') end += json[end] == '\\' ? 2 : 1;
  return std::min(end + 1, json.size());
}

bool IsPartOfFraction(const std::string& json, size_t begin, size_t end) {
  constexpr std::string_view kBefore = ".eE+";
  constexpr std::string_view kBehind = ".eE";
  return (begin > 0 && kBefore.find(json[begin - 1]) != std::string_view::npos) ||
         (end < json.size() && kBehind.find(json[end]) != std::string_view::npos);
}

bool IsBeyond(std::string_view digits, std::string_view largest) {
  if (digits.size() != largest.size()) return digits.size() > largest.size();
  return digits > largest;
}

bool IsHuge(const std::string& json, size_t begin, size_t end) {
  const bool negative = begin > 0 && json[begin - 1] == '-';
  return IsBeyond(std::string_view(json).substr(begin, end - begin),
                  negative ? "9223372036854775808" : "18446744073709551615");
}

// An integer of more than 64 bits is read as the nearest double, and would be written as that.
bool HoldsHugeInteger(const std::string& json) {
  size_t begin = 0;
  while ((begin = json.find_first_of("\"0123456789", begin)) != std::string::npos) {
    const bool quoted = json[begin] == '"';
    const size_t end = quoted ? EndOfText(json, begin)
                              : std::min(json.find_first_not_of("0123456789", begin), json.size());
    if (!quoted && !IsPartOfFraction(json, begin, end) && IsHuge(json, begin, end)) return true;
    begin = end;
  }
  return false;
}

// Bytes that are no UTF-8, numbers that no double holds: what is read back would be something else.
bool IsKeptByRewriting(const Json::Value& info, const std::string& text) {
  Json::Value again;
  return platform::ParseJson(text, again) && again == info &&
         !HoldsHugeInteger(ReadTextFile(kIndexPath));
}

Status Unkept() {
  LogError(kTag, "[%s] is not changed: it holds what a rewrite would not keep", kIndexPath);
  return Status::Failed(
      "cannot change", std::string("[") + kIndexPath + "]",
      "it would hold what JSON does not keep (bytes that are no UTF-8, or numbers "
      "that are too large)");
}

}  // namespace

IndexLock::IndexLock(std::chrono::seconds timeout) : FileLock(kTag, kIndexLockPath, timeout) {}

Status BrokenIndex(Site site) {
  LogError(site, "Broken [%s].%s", kIndexPath, ErrorTriple().c_str());
  return Status::FailedCall("Broken", std::string("[") + kIndexPath + "]");
}

Status ReadIndex(Json::Value& info) {
  if (JsonFromFile(kIndexPath, info)) return {};
  // A file that is no JSON fails without a system error; the triple is not to show an older one.
  if (errno == 0) platform::RecordError(EBADMSG);
  return BrokenIndex(kTag);
}

Status ReadIndexObject(Json::Value& info) {
  if (Status read = ReadIndex(info); !read || info.isObject()) return read;
  platform::RecordError(EBADMSG);
  return BrokenIndex(kTag);
}

Status WriteIndex(const Json::Value& info) {
  const std::string text = JsonStyledText(info);
  if (const int error = StageIndex(text); error != 0) {
    LogError(kTag, "Failed to write [%s] to [%s].", JsonToString(info).c_str(), kIndexStagingPath);
    return Status::Failed("Failed to write", kIndexStagingPath, ErrorWords(error));
  }
  const platform::WriteResult moved = platform::CommitStaged(kIndexStagingPath, kIndexPath);
  if (const int error = moved; error != 0) {
    LogError(kTag, "Failed to move %s to %s", kIndexStagingPath, kIndexPath);
    if (moved.InPlace()) {
      return Status::Failed("Failed to flush the folder of", kIndexPath, ErrorWords(error));
    }
    return Status::Failed("Failed to move", std::string(kIndexStagingPath) + " to " + kIndexPath,
                          ErrorWords(error));
  }
  return {};
}

Status EditIndex(const IndexLock& lock, const IndexEditor& edit, MissingIndex missing) {
  if (!lock.Held()) return lock.Outcome();
  Json::Value info;
  if (Status read = ReadForEdit(info, missing); !read) return read;
  if (edit(info) == IndexEdit::kLeave) return {};
  if (!IsKeptByRewriting(info, JsonStyledText(info))) return Unkept();
  Status written = WriteIndex(info);
  if (!written) LogError(kTag, "Failed to write [%s].", kIndexPath);
  return written;
}

Status EditIndex(std::chrono::seconds timeout, const IndexEditor& edit, MissingIndex missing) {
  const IndexLock lock(timeout);
  return EditIndex(lock, edit, missing);
}

}  // namespace kova::cert_archive
