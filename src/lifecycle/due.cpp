#include "lifecycle/due.h"

#include <cerrno>
#include <cstring>
#include <string>

#include "archive/integrity.h"
#include "base/debug.h"
#include "base/log.h"
#include "crypto/certificate.h"
#include "lifecycle/acme_folders.h"
#include "lifecycle/renewal_files.h"
#include "platform/files.h"

namespace kova {
namespace {

constexpr char kTag[] = "kova-letsencrypt";
constexpr char kRenewedIssuer[] = "Let's Encrypt";

int LeadDays(const Settings& settings) {
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

// Issuer and expiry decide, the renewal record does not: a certificate without one fails to be
// renewed, and is redeployed all the same.
bool IsDue(const std::string& folder, int lead_days) {
  const std::string certificate = folder + "/cert.pem";
  const std::string issuer = IssuerOrganization(certificate);
  if (issuer.empty()) return false;
  DebugStep("Issuer name of certificate. [%s]->[%s]", issuer.c_str(), certificate.c_str());
  if (issuer.find(kRenewedIssuer) == std::string::npos) {
    DebugStep("certificate is not issued by Let's encrypt. [%s]", certificate.c_str());
    return false;
  }
  if (!cert_archive::ExpiresWithin(certificate, lead_days)) {
    DebugStep("cert is not expired. [%s]", folder.c_str());
    return false;
  }
  return true;
}

}  // namespace

std::vector<DueCertificate> DueCertificates(const Settings& settings) {
  const std::vector<std::string> ids = ListCertificateIds(kTag);
  const int lead_days = LeadDays(settings);
  std::vector<DueCertificate> due;
  for (const std::string& id : ids) {
    const ArchivedCertificate certificate = ArchivedCertificate::OfId(id);
    if (!HasFolder(certificate, kTag)) continue;
    FinishRenewal(certificate);
    const bool to_renew = IsDue(certificate.folder, lead_days);
    if (to_renew || IsRenewalNoted(certificate)) due.push_back({certificate, to_renew});
  }
  return due;
}

}  // namespace kova
