// Where the certificate archive keeps what: one folder per certificate below the root, named by the
// certificate's id, an index and the name of the default certificate. docs/formats.md describes the
// files.
#pragma once

#include <array>
#include <string>

#include "base/files.h"
#include "base/status.h"

namespace kova::cert_archive {

// What stands in front of this module's log lines. It is interface (people filter the system log by
// it) and older than the present files, hence it names none of them.
inline constexpr char kTag[] = "utils.cpp";

using kova::kArchiveRoot;

inline constexpr char kArchiveName[] = "_archive";  // the last component of the root
inline constexpr char kIndexPath[] = "/usr/kova/etc/certificate/_archive/INFO";
inline constexpr char kIndexStagingPath[] = "/usr/kova/etc/certificate/_archive/INFO.temp";
// The service folder that is being replaced: {"destination": PATH}, gone when that is done.
inline constexpr char kServiceMoveNote[] = "/usr/kova/etc/certificate/_archive/SERVICE_MOVE";
inline constexpr char kDefaultPath[] = "/usr/kova/etc/certificate/_archive/DEFAULT";

// The longest id that can be the default certificate's; a longer one is cut when it is read.
inline constexpr int kLongestDefaultId = 15;

// What every certificate folder and every service folder must hold.
inline constexpr std::array kRequiredFiles = {"cert.pem", "privkey.pem", "fullchain.pem"};

// Where a certificate of that id lives. `id` must be a plain name.
std::string CertificateFolder(const std::string& id);

// True for exactly one path component: not empty, not "." or "..", no "/" and no NUL in it. Nothing
// else out of the index or a command line may become part of a path.
[[nodiscard]] bool IsPlainName(const std::string& name);

// The id of the certificate whose folder is `path` or above `path`. Empty unless `path` is below
// the archive root and names an existing folder.
[[nodiscard]] std::string CertificateIdOfPath(const std::string& path);

// The id that the DEFAULT file holds. Empty when there is none, and, with a message, when the
// archive has no such folder.
[[nodiscard]] std::string DefaultCertificateId();

// The same for callers to whom it matters why there is none. Fails when there is a DEFAULT file
// that cannot be read and, unless that is as good as none, when the archive has no such folder;
// `id` is then empty.
enum class GoneDefault { kIsFailure, kIsNone };
Status ReadDefaultCertificate(std::string& id, GoneDefault gone = GoneDefault::kIsFailure);

// True when `path` is a folder and written in its canonical form: no "..", no symbolic link, no
// doubled or trailing "/". A path that leads elsewhere is logged.
[[nodiscard]] bool IsSafeFolder(const std::string& path);

// The same without a message.
[[nodiscard]] bool IsCanonicalFolder(const std::string& path);

// True when all of kRequiredFiles exist in `folder`.
[[nodiscard]] bool HoldsRequiredFiles(const std::string& folder);

}  // namespace kova::cert_archive
