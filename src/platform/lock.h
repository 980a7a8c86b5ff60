// Advisory whole-file locks (flock) shared with the other programs of the host.
#pragma once

#include <string>

// Takes the lock on `file`, waiting up to `timeout_seconds`. The file is created empty (0600) when
// it is missing, is never truncated, and is not followed when it is a symbolic link; a file that
// another user created is locked as well. `*handle` becomes a descriptor. 0, or negative when the
// lock could not be had in time or the file is unusable (handle unchanged, error triple set).
int KLIBCFileLockTimeByFile(const std::string& file, int exclusive, int timeout_seconds,
                            int* handle);

// Releases and closes. 0, or negative.
int KLIBCFileUnlockByFile(int handle);
