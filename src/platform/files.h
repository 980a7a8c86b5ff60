// Files and folders, whole and as JSON. Calls that can fail record the platform's error triple
// (platform/error.h).
#pragma once

#include <json/forwards.h>
#include <sys/types.h>

#include <cstdio>
#include <memory>
#include <string>

#include "platform/fd.h"

// True when something of that name exists (links are followed).
bool KLIBCFileExist(const std::string& path);

// True when the path names a directory (links are followed).
bool KLIBCFileCheckDir(const std::string& path);

// fgets(3); -1 at the end of the file or on an error, else the number of bytes read.
int KLIBCFgets(char* buffer, int size, std::FILE* file);

// Creates an empty file, or updates the times of an existing one. 0, or -1.
int KLIBCFileTouch(const std::string& path);

// Removes a UTF-8 byte-order mark from the file in place (whole or not at all, mode and owner
// kept). 0, also when there was none; -1 when the file cannot be read or rewritten.
int KLIBCFileUTF8BomStrip(const std::string& path);

// Advisory whole-file locks (flock), shared with the other programs of the host.
//
// Takes the lock on `file`, waiting up to `timeout_seconds`. The file is created empty (0600) when
// it is missing, is never truncated, and is not followed when it is a symbolic link; a file that
// another user created is locked as well. `*handle` becomes a descriptor. 0, or negative when the
// lock could not be had in time or the file is unusable (handle unchanged, error triple set).
int KLIBCFileLockTimeByFile(const std::string& file, int exclusive, int timeout_seconds,
                            int* handle);

// Releases and closes. 0, or negative.
int KLIBCFileUnlockByFile(int handle);

// mkdir -p. The four middle words are the platform's and are passed as (0, 1, 0, 0) by every
// caller; folders that are created get `mode`, whatever the umask. 0, or negative.
int KOVAFSMkdirP(const std::string& path, int, int, int, int, mode_t mode);

namespace kova::platform {

// realpath(3): the path without links, "..", doubled or trailing "/". Empty when it cannot be
// resolved; errno says why.
std::string CanonicalPath(const std::string& path);

// mkdir(2); a folder that it creates has that mode whatever the umask. 0, or an errno: EEXIST when
// something of that name is there.
[[nodiscard]] int MakeFolder(const std::string& path, mode_t mode);

// The whole content of a regular file. False when it cannot be read; errno says why.
[[nodiscard]] bool ReadWholeFile(const std::string& path, std::string& content);

// fopen(3) for reading, but never of a pipe, a socket or a device, which could keep us waiting:
// that is EINVAL. None, with errno; the error triple stays as it is.
[[nodiscard]] FilePtr OpenToRead(const std::string& path);

// The one call of the JSON parser. Everything that reads JSON, from a file or from a server, comes
// through here, so that no text can end the process. Parses without collecting comments. False when
// `text` is not JSON, also when it is nested more deeply than the parser follows; `value` is then
// null.
[[nodiscard]] bool ParseJson(const std::string& text, Json::Value& value);

// The JSON object in the file at `path`. False when the file cannot be read (errno says why), or
// does not hold a JSON object (errno is then 0).
[[nodiscard]] bool ReadJsonObject(const std::string& path, Json::Value& object);

}  // namespace kova::platform
