#include "lifecycle/due.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <optional>
#include <string>

#include "acme/renewal_record.h"
#include "archive/integrity.h"
#include "base/debug.h"
#include "base/log.h"
#include "crypto/certificate.h"
#include "lifecycle/acme_folders.h"
#include "lifecycle/lifetime.h"
#include "lifecycle/names.h"
#include "lifecycle/renewal_files.h"
#include "lifecycle/renewal_history.h"
#include "platform/files.h"

namespace kova {
namespace {

constexpr char kTag[] = "kova-letsencrypt";
constexpr char kRenewedIssuer[] = "Let's Encrypt";

int LeadDays(const RenewalSettings& settings) {
  errno = 0;
  if (!KLIBCFileExist(kSettingsPath)) {
    LogError(kTag, "File not exist. [%s]: [%s]", std::strerror(errno), kSettingsPath);
    return kDefaultLeadDays;
  }
  if (!settings.usable) {
    LogError(kTag, "Read json file failed. [%s]: [%s]", std::strerror(settings.read_error),
             kSettingsPath);
    return kDefaultLeadDays;
  }
  return settings.renew_before_expire_days.value_or(kDefaultLeadDays);
}

bool HasUsableRecord(const std::string& folder) {
  RenewalRecord record;
  return ReadRenewalRecord(folder, record) == RecordProblem::kNone &&
         (record.version == 1 || record.version == 2) && !SplitDomainList(record.domains).empty();
}

// The issuer decides, the renewal record does not: a certificate without one fails to be renewed,
// and is redeployed all the same.
bool IsOfRenewedIssuer(const std::string& certificate) {
  const std::string issuer = IssuerOrganization(certificate);
  if (issuer.empty()) return false;
  DebugStep("Issuer name of certificate. [%s]->[%s]", issuer.c_str(), certificate.c_str());
  if (issuer.find(kRenewedIssuer) != std::string::npos) return true;
  DebugStep("certificate is not issued by Let's encrypt. [%s]", certificate.c_str());
  return false;
}

// Due is what either rule finds due; the days count beside the lifetime only when they are set.
bool EndsSoon(const std::string& certificate, const RenewalSettings& settings, int lead_days) {
  if (settings.renew_lifetime) {
    const std::optional<Lifetime> lifetime = LifetimeOf(certificate);
    if (lifetime && IsDue(*lifetime, std::time(nullptr))) return true;
    if (!settings.renew_before_expire_days) return false;
  }
  return cert_archive::ExpiresWithin(certificate, lead_days);
}

bool IsDue(const std::string& folder, const RenewalSettings& settings, int lead_days) {
  const std::string certificate = folder + "/cert.pem";
  const bool is_ours = settings.renew_any_issuer && HasUsableRecord(folder);
  if (!is_ours && !IsOfRenewedIssuer(certificate)) return false;
  if (EndsSoon(certificate, settings, lead_days)) return true;
  DebugStep("cert is not expired. [%s]", folder.c_str());
  return false;
}

// After failures in a row it is tried once a day, unless its end is near.
bool IsHeldBack(const ArchivedCertificate& certificate, const RenewalSettings& settings) {
  if (!settings.renew_failures || !cert_archive::IsPlainName(certificate.id)) return false;
  const std::int64_t now = std::time(nullptr);
  if (!IsWaiting(ReadRenewalHistory(certificate.id), now)) return false;
  const std::optional<Lifetime> lifetime = LifetimeOf(certificate.folder + "/cert.pem");
  if (!lifetime || IsNearlyOver(*lifetime, now)) return false;
  DebugStep("failed before, not tried again today. [%s]", certificate.folder.c_str());
  return true;
}

}  // namespace

std::vector<DueCertificate> DueCertificates(const RenewalSettings& settings) {
  const std::vector<std::string> ids = ListCertificateIds(kTag);
  const int lead_days = LeadDays(settings);
  std::vector<DueCertificate> due;
  for (const std::string& id : ids) {
    const ArchivedCertificate certificate = ArchivedCertificate::OfId(id);
    if (!HasFolder(certificate, kTag)) continue;
    FinishRenewal(certificate);
    const bool to_renew =
        IsDue(certificate.folder, settings, lead_days) && !IsHeldBack(certificate, settings);
    if (to_renew || IsRenewalNoted(certificate)) due.push_back({certificate, to_renew});
  }
  return due;
}

}  // namespace kova
