#include "archive/paths.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "base/log.h"
#include "platform/files.h"
#include "self_signed/log_tag.h"

namespace kova::cert_archive {
namespace {

// The first line of the DEFAULT file, as far as an id may be long.
std::string ReadDefaultLine() {
  const platform::FilePtr file = platform::OpenToRead(kDefaultPath);
  if (file == nullptr) return {};
  std::array<char, kLongestDefaultId + 1> line{};
  if (KLIBCFgets(line.data(), static_cast<int>(line.size()), file.get()) < 0) return {};
  if (char* end = std::strrchr(line.data(), '\n'); end != nullptr) *end = '\0';
  return line.data();
}

struct FreeText {
  void operator()(char* text) const noexcept { std::free(text); }
};

// Empty when the path cannot be resolved.
std::string Canonical(const std::string& path) {
  const std::unique_ptr<char, FreeText> canonical(realpath(path.c_str(), nullptr));
  return canonical == nullptr ? std::string() : canonical.get();
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

std::string DefaultCertificateId() {
  const std::string id = ReadDefaultLine();
  if (id.empty()) return {};
  const std::string folder = CertificateFolder(id);
  if (KLIBCFileCheckDir(folder)) return id;
  LogError(kTag, "[%s] doesn't exist.%s", folder.c_str(), ErrorTriple().c_str());
  return {};
}

bool IsCanonicalFolder(const std::string& path) {
  return Canonical(path) == path && KLIBCFileCheckDir(path);
}

bool IsSafeFolder(const std::string& path) {
  const std::string canonical = Canonical(path);
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
