// Names for files that are about to take another one's place.
#pragma once

#include <string>

namespace kova::platform {

// The folder that the path is in.
std::string FolderOf(const std::string& path);

// Beside the path, of the form ".NAME.XXXXXX.kova" with six random characters, so that nobody can
// sit on it (a long NAME is cut); cron, and listings by "*", pass over such names. Whoever uses one
// holds a flock(2) on the file as long as it bears that name. Empty, with errno, without
// randomness.
std::string StagingName(const std::string& path);

// True when the open file bears that name.
[[nodiscard]] bool BearsName(int fd, const std::string& name);

// Removes what killed writers of this path left: regular files of that form, of this user, that no
// living process holds.
void RemoveLeftovers(const std::string& path);

}  // namespace kova::platform
