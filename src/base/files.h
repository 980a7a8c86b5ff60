// File helpers shared by all layers above. Failures are reported by the result unless stated.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace kova {

// The certificate archive: one folder per certificate below this one (docs/formats.md).
inline constexpr char kArchiveRoot[] = "/usr/kova/etc/certificate/_archive";

// The whole file, or an empty string when it cannot be opened.
std::string ReadTextFile(const std::string& path);

// Appends every match of the shell pattern, sorted, folders with a trailing "/". True also when
// nothing matches; false on any other failure of glob(3).
[[nodiscard]] bool ListByPattern(const std::string& pattern, std::vector<std::string>& matches);

// Whether something of that name is there, if need be as a new folder, which has that mode whatever
// the umask. False with errno.
[[nodiscard]] bool MakeFolder(const std::string& path, mode_t mode);

// Replaces the file whole, with exactly that mode from its first byte on. Throws SLError 202
// (file "utils"): "Failed to chmod." when the file cannot be created or its mode not be set,
// "Failed to write PATH: REASON" when its content could not be stored whole; the old file, if any,
// is then untouched. "Failed to flush the folder of PATH: REASON" when the new file stands, but a
// power cut may still bring the old one back.
void WriteTextFile(const std::string& path, const std::string& content, mode_t mode);

}  // namespace kova
