// Folders of the archive and of its services, handled with the system's own tools. All paths are
// absolute. Every call logs why it failed.
#pragma once

#include <sys/types.h>

#include <string>

#include "base/status.h"

namespace kova::cert_archive {

// rm -rf of an existing folder.
Status RemoveDirectory(const std::string& path);

// Leaves an empty folder of that mode, parents included.
Status CleanDirectory(const std::string& path, mode_t mode);

// Puts `source` in the place of `destination`. While it works, the old content stands beside it as
// `destination`.bak, from where it comes back when a step fails.
Status MoveDirectory(const std::string& source, const std::string& destination);

// MoveDirectory for a service's folder, which is noted durably while it lasts. One at a time: the
// caller holds the lock of the services' folders.
Status ReplaceNoted(const std::string& source, const std::string& destination);

// Undoes what a ReplaceNoted left that was killed before its rename: when the noted destination is
// gone or a mere remnant of what stands whole in its ".bak", the latter becomes the destination
// again. A backup that nobody needs any more is removed. Anything else is left to the next move;
// what no note tells of is never touched, since it may be another service's. The caller holds the
// lock of the services' folders.
void FinishInterruptedMove();

// Copies source_folder/name to destination_folder/name: mode 0400, owned by uid:gid, flushed. At no
// time is the copy open to anyone but root.
Status CopyOneFile(const std::string& source_folder, const std::string& destination_folder,
                   const std::string& name, uid_t uid, gid_t gid);

// Logs `message` and what the crypto library has to say, "MESSAGE [ERRORS]", and empties its queue.
void LogCryptoErrors(const std::string& message);

}  // namespace kova::cert_archive
