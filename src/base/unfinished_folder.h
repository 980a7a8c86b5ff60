// Folders under a made-up name that count only once they are complete. While such a folder is made,
// its maker holds a lock (flock) on a mark beside it, ".NAME.unfinished". A mark that nobody holds
// is what a killed run left: it goes at the next run, and with it the folder.
#pragma once

#include <string>

#include "platform/fd.h"

namespace kova {

class UnfinishedFolder {
 public:
  UnfinishedFolder() = default;
  // Removes the folder with the files in it, unless it was kept or left.
  ~UnfinishedFolder();
  UnfinishedFolder(const UnfinishedFolder&) = delete;
  UnfinishedFolder& operator=(const UnfinishedFolder&) = delete;

  // Makes a folder of six random characters (0700, less what the umask takes away) in `parent`.
  // False with errno on failure.
  [[nodiscard]] bool Make(const std::string& parent);

  [[nodiscard]] const std::string& Path() const { return path_; }

  // The folder is complete. False with errno when that cannot be put down; the folder is removed
  // then, since the next run would take it for a leftover.
  [[nodiscard]] bool Keep();

  // For a folder whose worth is decided later: it stays, marked, and the mark is held until this
  // process ends.
  void LeaveMarked();

 private:
  [[nodiscard]] bool Mark(const std::string& parent);

  std::string path_;  // empty: none is owned
  platform::Fd mark_;
};

// A folder that was left marked is complete. Done as well when it has no mark. False with errno.
[[nodiscard]] bool KeepUnfinished(const std::string& folder);

// A complete folder is not wanted after all: the next run removes it. What fails leaves it there.
void MarkUnfinished(const std::string& folder);

// Removes what killed runs left in `parent`. A folder that holds a file of the name `complete`
// (when that is not empty) had become complete: only its mark goes. What fails is logged.
void RemoveUnfinished(const std::string& parent, const std::string& complete = "");

}  // namespace kova
