// The two halves of copying a private key without ever showing it to others.
#pragma once

#include <sys/types.h>

#include <string>

namespace kova::cert_archive {

// Copies the file with the system's tool. The copy is open to root alone, whatever the mode of the
// source. 0; the tool's status when it could not copy all of the file: there may be no copy, or
// half of one (think of a full disk); negative when the tool could not be run or was killed.
[[nodiscard]] int CopyPrivately(const std::string& source, const std::string& copy);

// Mode 0400, then the owner; flushed to the disk, since the folder is about to replace another.
[[nodiscard]] bool HandOver(const std::string& file, uid_t uid, gid_t gid);

}  // namespace kova::cert_archive
