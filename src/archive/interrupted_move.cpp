// What a killed MoveDirectory leaves behind, and how it is put right.
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "archive/paths.h"
#include "archive/utils.h"
#include "base/files.h"
#include "base/json.h"
#include "base/log.h"
#include "platform/clock.h"
#include "platform/file_writer.h"
#include "platform/files.h"

namespace kova::cert_archive {
namespace {

namespace fs = std::filesystem;

constexpr mode_t kNoteMode = 0600;
constexpr std::chrono::seconds kToolsTime{1};

// True when the folder was changed within the last moments.
bool IsFresh(const fs::path& folder) {
  std::error_code error;
  const fs::file_time_type changed = fs::last_write_time(folder, error);
  if (error) return false;
  const auto age = fs::file_time_type::clock::now() - changed;
  return age >= decltype(age)::zero() && age < kToolsTime;
}

bool IsSameEntry(const fs::path& left, const fs::path& right) {
  std::error_code error;
  const fs::file_status status = fs::symlink_status(left, error);
  if (status.type() != fs::symlink_status(right, error).type()) return false;
  if (status.type() != fs::file_type::regular) return true;
  return ReadTextFile(left) == ReadTextFile(right);
}

// How many entries `folder` has, or -1 when one of them is not also in `backup`, byte for byte.
int EntriesAlsoIn(const fs::path& backup, const fs::path& folder) {
  std::error_code error;
  int count = 0;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    if (!IsSameEntry(entry->path(), backup / entry->path().filename())) return -1;
    ++count;
  }
  return error ? -1 : count;
}

int EntriesOf(const fs::path& folder) { return EntriesAlsoIn(folder, folder); }

// A move removes the destination only once the backup is whole. So a destination that holds less
// than the backup, and nothing else, was being removed; if it holds as much or more, the backup was
// being made; if it differs, it is the new set and the backup is a leftover.
bool IsRemnant(const std::string& destination, const std::string& backup) {
  if (!HoldsRequiredFiles(backup)) return false;
  if (!KLIBCFileCheckDir(destination)) return true;
  const int left = EntriesAlsoIn(backup, destination);
  return left >= 0 && left < EntriesOf(backup);
}

std::string BackupOf(const std::string& destination) { return destination + ".bak"; }

// The destination of a move that was begun and is not known to have ended; empty when there is
// none.
std::string NotedDestination() {
  Json::Value note;
  return JsonFromFile(kServiceMoveNote, note) ? TextMember(note, "destination") : std::string();
}

// A tool that the killed run had started lives on for a moment; it must not work against us.
void AwaitTools(const std::string& destination) {
  if (IsFresh(destination + ".temp") || IsFresh(BackupOf(destination)) ||
      IsFresh(fs::path(destination).parent_path())) {
    platform::SleepFor(kToolsTime);
  }
}

void PutBackRemnant(const std::string& destination) {
  const std::string backup = BackupOf(destination);
  if (!IsRemnant(destination, backup)) return;
  if (KLIBCFileCheckDir(destination) && !RemoveDirectory(destination)) return;
  if (std::rename(backup.c_str(), destination.c_str()) == 0) {
    LogError(kTag, "%s is put back after an interrupted move", destination.c_str());
  } else {
    LogError(kTag, "Failed to move %s to %s [%d]", backup.c_str(), destination.c_str(), errno);
  }
}

// The destination is the old set or the new one, so that nobody needs the backup.
void RemoveLeftoverBackup(const std::string& destination) {
  const std::string backup = BackupOf(destination);
  if (KLIBCFileCheckDir(backup) && HoldsRequiredFiles(destination)) (void)RemoveDirectory(backup);
}

void RemoveNote() { (void)unlink(kServiceMoveNote); }

}  // namespace

Status ReplaceNoted(const std::string& source, const std::string& destination) {
  Json::Value note(Json::objectValue);
  note["destination"] = destination;
  // Only a run that is killed as well would need it: a full archive keeps no service from its
  // files.
  (void)platform::ReplaceFile(kServiceMoveNote, JsonStyledText(note), kNoteMode);
  Status moved = MoveDirectory(source, destination);
  // A backup that is still there is the old set after a rollback that failed, or could not be
  // removed: the next run tries again.
  if (!KLIBCFileCheckDir(BackupOf(destination))) RemoveNote();
  return moved;
}

void FinishInterruptedMove() {
  const std::string destination = NotedDestination();
  if (!destination.empty()) {
    AwaitTools(destination);
    PutBackRemnant(destination);
    if (IsRemnant(destination, BackupOf(destination))) return;  // the next run tries again
    RemoveLeftoverBackup(destination);
  }
  RemoveNote();
}

}  // namespace kova::cert_archive
