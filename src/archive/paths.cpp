#include "archive/paths.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "base/log.h"
#include "platform/files.h"

namespace kova::cert_archive {
namespace {

// The first line of the DEFAULT file, as far as an id may be long. A missing file is an empty one.
Status ReadDefaultLine(std::string& text) {
  errno = 0;
  const platform::FilePtr file = platform::OpenToRead(kDefaultPath);
  if (file == nullptr && errno == ENOENT) return {};
  if (file == nullptr) return Status::Failed("cannot read", kDefaultPath, ErrorWords(errno));
  std::array<char, kLongestDefaultId + 1> line{};
  if (KLIBCFgets(line.data(), static_cast<int>(line.size()), file.get()) < 0) {
    if (std::ferror(file.get()) == 0) return {};
    return Status::FailedCall("cannot read", kDefaultPath);
  }
  if (char* end = std::strrchr(line.data(), '\n'); end != nullptr) *end = '\0';
  text = line.data();
  return {};
}

}  // namespace

std::string CertificateFolder(const std::string& id) {
  return std::string(kArchiveRoot) + "/" + id;
}

bool IsPlainName(const std::string& name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos &&
         name.find('\0') == std::string::npos;
}

std::string CertificateIdOfPath(const std::string& path) {
  const std::string prefix = std::string(kArchiveRoot) + "/";
  if (!path.starts_with(prefix) || !KLIBCFileCheckDir(path)) return {};
  const size_t end = path.find('/', prefix.size() + 1);
  return path.substr(prefix.size(), end == std::string::npos ? end : end - prefix.size());
}

Status ReadDefaultCertificate(std::string& id, GoneDefault gone) {
  id.clear();
  std::string line;
  if (Status read = ReadDefaultLine(line); !read || line.empty()) return read;
  const std::string folder = CertificateFolder(line);
  if (!KLIBCFileCheckDir(folder)) {
    LogError(kTag, "[%s] doesn't exist.%s", folder.c_str(), ErrorTriple().c_str());
    if (gone == GoneDefault::kIsNone) return {};
    return Status::FailedCall("[" + folder + "] doesn't exist", "");
  }
  id = line;
  return {};
}

std::string DefaultCertificateId() {
  std::string id;
  (void)ReadDefaultCertificate(id);
  return id;
}

bool IsCanonicalFolder(const std::string& path) {
  return platform::CanonicalPath(path) == path && KLIBCFileCheckDir(path);
}

bool IsSafeFolder(const std::string& path) {
  const std::string canonical = platform::CanonicalPath(path);
  if (!canonical.empty() && canonical != path) {
    LogError(kTag, "Path not match, maybe bugs or attacked");
  }
  return canonical == path && KLIBCFileCheckDir(path);
}

bool HoldsRequiredFiles(const std::string& folder) {
  return std::all_of(kRequiredFiles.begin(), kRequiredFiles.end(),
                     [&](const char* name) { return KLIBCFileExist(folder + "/" + name); });
}

}  // namespace kova::cert_archive
