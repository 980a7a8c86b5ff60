// The certificates of this host's archive: which of them renewal would pass over.
#include <optional>
#include <utility>

#include "archive/paths.h"
#include "archive_cli/host_check.h"
#include "base/files.h"
#include "base/renewal_settings.h"
#include "base/settings.h"
#include "lifecycle/archived_certificate.h"
#include "lifecycle/due.h"
#include "platform/files.h"

namespace kova::archive_cli {
namespace {

// A folder that is being made, or that a later run removes, is nobody's certificate.
bool IsMarked(const std::string& id) {
  const std::string mark = cert_archive::CertificateFolder("." + id);
  return KLIBCFileExist(mark + ".unfinished") || KLIBCFileExist(mark + ".removed");
}

// The ids of the folders of the archive that hold a certificate, in their order.
std::vector<std::string> StoredIds() {
  const std::string root = std::string(cert_archive::kArchiveRoot) + "/";
  std::vector<std::string> paths;
  std::vector<std::string> ids;
  if (!ListByPattern(root + "*", paths)) return ids;
  for (const std::string& path : paths) {
    if (!path.ends_with('/') || !KLIBCFileExist(path + "cert.pem")) continue;
    const std::string id = path.substr(root.size(), path.size() - root.size() - 1);
    if (!IsMarked(id)) ids.push_back(id);
  }
  return ids;
}

Finding Unlisted(const std::string& id) {
  const std::string folder = cert_archive::CertificateFolder(id);
  // Without a record nothing would renew it in the index either.
  const Level level = KLIBCFileExist(folder + "/renew.json") ? Level::kFailure : Level::kWarning;
  return {level, "archive folders",
          folder + " holds a certificate, but is not in the index, so that it is never renewed",
          "kova-archive add " + id + ", or delete the folder when nobody needs it"};
}

Finding PassedOver(Level level, const std::string& id, const std::string& what,
                   const std::string& advice) {
  return {level, "renewals", id + " " + what, advice};
}

Finding Unreadable(const std::string& id) {
  return PassedOver(Level::kFailure, id, "has a cert.pem that cannot be read, so it never is due",
                    "obtain it again with new-cert -c " + id);
}

Finding WithoutRecord(const std::string& id) {
  return PassedOver(Level::kWarning, id, "is due, but has no renewal record: it is not renewed",
                    "put a new one in its place, or obtain it anew with new-cert -c " + id);
}

Finding WithUnusableRecord(const std::string& id) {
  return PassedOver(Level::kFailure, id,
                    "is due, but its renewal record (renew.json) cannot be used",
                    "obtain it again with new-cert -c " + id);
}

Finding OfOtherIssuer(const std::string& id) {
  return PassedOver(Level::kFailure, id, "is due, but passed over for its issuer",
                    "set \"renewanyissuer\": true in " + std::string(kSettingsPath));
}

Finding HeldBack(const std::string& id) {
  return PassedOver(Level::kFailure, id,
                    "is due, but failed to be renewed several times in a row and is not tried "
                    "again within a day",
                    "`kova-archive list` says what failed; kova-archive renew " + id +
                        " --force tries it now");
}

// None for one that stands in nobody's way.
std::vector<Finding> Judged(const std::string& id, const RenewalSettings& settings) {
  switch (ProspectOf(ArchivedCertificate::OfId(id), settings)) {
    case Prospect::kUnreadable:
      return {Unreadable(id)};
    case Prospect::kNoRecord:
      return {WithoutRecord(id)};
    case Prospect::kUnusableRecord:
      return {WithUnusableRecord(id)};
    case Prospect::kOtherIssuer:
      return {OfOtherIssuer(id)};
    case Prospect::kHeldBack:
      return {HeldBack(id)};
    case Prospect::kNotDue:
    case Prospect::kRenewed:
      break;
  }
  return {};
}

}  // namespace

std::vector<Finding> CheckArchiveFolders() {
  const std::optional<Json::Value> info = IndexToCheck();
  if (!info) return {};
  std::vector<Finding> findings;
  for (const std::string& id : StoredIds()) {
    if (!info->isMember(id)) findings.push_back(Unlisted(id));
  }
  if (!findings.empty()) return findings;
  return {{Level::kOk, "archive folders", "none that the index does not know", ""}};
}

std::vector<Finding> CheckRenewals() {
  const std::optional<Json::Value> info = IndexToCheck();
  if (!info) return {};
  const RenewalSettings settings = RenewalSettings::Read();
  std::vector<Finding> findings;
  for (const std::string& id : info->getMemberNames()) {
    if (!cert_archive::IsPlainName(id)) continue;
    for (Finding& finding : Judged(id, settings)) findings.push_back(std::move(finding));
  }
  if (!findings.empty()) return findings;
  return {{Level::kOk, "renewals", "no certificate that is due is passed over", ""}};
}

}  // namespace kova::archive_cli
