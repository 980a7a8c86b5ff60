#include "lifecycle/acme_folders.h"

#include <cerrno>
#include <cstring>

#include "acme/renewal_record.h"
#include "archive/paths.h"
#include "base/json.h"
#include "base/log.h"
#include "platform/files.h"

namespace kova {
namespace {

constexpr char kTag[] = "utils";

}  // namespace

std::vector<std::string> ListCertificateIds(Site site) {
  const std::string path = cert_archive::kIndexPath;
  errno = 0;
  if (!KLIBCFileExist(path)) {
    LogError(site, "File not exist. [%s][%s]", std::strerror(errno), path.c_str());
    return {};
  }
  Json::Value index;
  errno = 0;
  const bool parsed = JsonFromFile(path, index);
  if (!parsed || !index.isObject()) {
    const char* reason = parsed ? "not an object" : std::strerror(errno);
    LogError(site, "Read json file failed. [%s][%s]", reason, path.c_str());
    return {};
  }
  return index.getMemberNames();
}

bool HasFolder(const ArchivedCertificate& certificate, Site site) {
  errno = 0;
  if (KLIBCFileCheckDir(certificate.folder)) return true;
  LogError(site, "Folder not exist. [%s][%s]", std::strerror(errno), certificate.folder.c_str());
  return false;
}

std::set<std::string> ListAcmeFolders() {
  std::set<std::string> folders;
  for (const std::string& id : ListCertificateIds(kTag)) {
    const ArchivedCertificate certificate = ArchivedCertificate::OfId(id);
    if (HasFolder(certificate, kTag) && KLIBCFileExist(RenewalRecordPath(certificate.folder))) {
      folders.insert(certificate.folder);
    }
  }
  return folders;
}

}  // namespace kova
