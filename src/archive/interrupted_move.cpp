// What a killed MoveDirectory leaves behind, and how it is put right.
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "archive/paths.h"
#include "archive/utils.h"
#include "base/files.h"
#include "base/log.h"
#include "platform/clock.h"
#include "platform/files.h"

namespace kova::cert_archive {
namespace {

namespace fs = std::filesystem;

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

}  // namespace

void FinishInterruptedMove(const std::string& source, const std::string& destination) {
  const std::string backup = destination + ".bak";
  if (!KLIBCFileCheckDir(source) && !KLIBCFileCheckDir(backup)) return;
  // A tool that the killed run had started lives on for a moment; it must not work against us.
  if (IsFresh(source) || IsFresh(backup) || IsFresh(fs::path(destination).parent_path())) {
    platform::SleepFor(kToolsTime);
  }
  if (!IsRemnant(destination, backup)) return;
  if (KLIBCFileCheckDir(destination) && !RemoveDirectory(destination)) return;
  if (std::rename(backup.c_str(), destination.c_str()) == 0) {
    LogError(kTag, "%s is put back after an interrupted move", destination.c_str());
  } else {
    LogError(kTag, "Failed to move %s to %s [%d]", backup.c_str(), destination.c_str(), errno);
  }
}

}  // namespace kova::cert_archive
