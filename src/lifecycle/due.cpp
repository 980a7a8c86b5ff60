#include "lifecycle/due.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <optional>
#include <string>
#include <utility>

#include "acme/renewal_record.h"
#include "acme_v2/renewal_info.h"
#include "archive/integrity.h"
#include "base/debug.h"
#include "base/json.h"
#include "base/log.h"
#include "crypto/certificate.h"
#include "lifecycle/acme_folders.h"
#include "lifecycle/lifetime.h"
#include "lifecycle/names.h"
#include "lifecycle/renewal_adviser.h"
#include "lifecycle/renewal_files.h"
#include "lifecycle/renewal_history.h"
#include "platform/files.h"

namespace kova {
namespace {

constexpr char kTag[] = "kova-letsencrypt";
constexpr char kRenewedIssuer[] = "Let's Encrypt";

void TellUnusable(const RenewalSettings& settings) {
  errno = 0;
  if (!KLIBCFileExist(kSettingsPath)) {
    LogError(kTag, "File not exist. [%s]: [%s]", std::strerror(errno), kSettingsPath);
  } else if (!settings.usable) {
    Json::Value other;  // JSON, but no object
    const char* reason =
        JsonFromFile(kSettingsPath, other) ? "not an object" : std::strerror(settings.read_error);
    LogError(kTag, "Read json file failed. [%s]: [%s]", reason, kSettingsPath);
  }
}

// None, without a message, when the certificate cannot be renewed with it.
std::optional<RenewalRecord> UsableRecord(const std::string& folder) {
  RenewalRecord record;
  if (ReadRenewalRecord(folder, record) != RecordProblem::kNone) return std::nullopt;
  if (record.version != 1 && record.version != 2) return std::nullopt;
  if (SplitDomainList(record.domains).empty()) return std::nullopt;
  return record;
}

// One certificate, read once for all that is asked about it.
struct Candidate {
  explicit Candidate(ArchivedCertificate its)
      : archived(std::move(its)),
        path(archived.folder + "/cert.pem"),
        certificate(Certificate::FromFile(path)) {}

  ArchivedCertificate archived;
  std::string path;
  std::optional<Certificate> certificate;
};

// What is missing is said by the function that looks for it in the file.
std::string IssuerOf(const Candidate& candidate) {
  const std::string issuer =
      candidate.certificate ? candidate.certificate->IssuerOrganizationBytes() : std::string();
  return issuer.empty() ? IssuerOrganization(candidate.path) : issuer;
}

// The issuer decides, the renewal record does not: a certificate without one fails to be renewed,
// and is redeployed all the same.
bool IsOfRenewedIssuer(const Candidate& candidate) {
  const std::string issuer = IssuerOf(candidate);
  if (issuer.empty()) return false;
  DebugStep("Issuer name of certificate. [%s]->[%s]", issuer.c_str(), candidate.path.c_str());
  if (issuer.find(kRenewedIssuer) != std::string::npos) return true;
  DebugStep("certificate is not issued by Let's encrypt. [%s]", candidate.path.c_str());
  return false;
}

bool EndsWithin(const Candidate& candidate, int days) {
  return candidate.certificate
             ? cert_archive::ExpiresWithin(*candidate.certificate, candidate.path, days)
             : cert_archive::ExpiresWithin(candidate.path, days);
}

bool EndsSoon(const Candidate& candidate, const DueRule& rule) {
  const std::optional<Lifetime> lifetime =
      rule.by_lifetime ? LifetimeOf(candidate.certificate, candidate.path) : std::nullopt;
  if (lifetime) return IsDue(*lifetime, rule, std::time(nullptr));
  return rule.lead_days && EndsWithin(candidate, *rule.lead_days);
}

// After failures in a row it is tried once a day, unless its end is near.
bool IsHeldBack(const Candidate& candidate, const RenewalSettings& settings) {
  const std::string& id = candidate.archived.id;
  if (!settings.renew_failures || !cert_archive::IsPlainName(id)) return false;
  const std::int64_t now = std::time(nullptr);
  if (!IsWaiting(ReadRenewalHistory(id), now)) return false;
  const std::optional<Lifetime> lifetime = LifetimeOf(candidate.certificate, candidate.path);
  if (!lifetime || IsNearlyOver(*lifetime, now)) return false;
  DebugStep("failed before, not tried again today. [%s]", candidate.archived.folder.c_str());
  return true;
}

// Whether its CA would like to see it renewed before the next run. While it is held back, nobody is
// asked.
bool IsAdvised(const Candidate& candidate, const std::optional<RenewalRecord>& record,
               const RenewalSettings& settings, RenewalAdviser& adviser) {
  const std::string& id = candidate.archived.id;
  if (!settings.renewal_info || !cert_archive::IsPlainName(id)) return false;
  if (!candidate.certificate || !record || record->version != 2) return false;
  const std::string identifier = RenewalIdentifier(*candidate.certificate);
  if (identifier.empty() || IsHeldBack(candidate, settings)) return false;
  return adviser.Advises(id, record->server, identifier);
}

// What the rules make of it before its CA is asked.
Prospect Judge(const Candidate& candidate, const std::optional<RenewalRecord>& record,
               const RenewalSettings& settings) {
  const bool is_ours = settings.renew_any_issuer && record;
  if (!is_ours && !IsOfRenewedIssuer(candidate)) return Prospect::kOtherIssuer;
  if (!EndsSoon(candidate, DueRule::Of(settings))) return Prospect::kNotDue;
  return IsHeldBack(candidate, settings) ? Prospect::kHeldBack : Prospect::kRenewed;
}

// The same after it was asked.
Prospect JudgeAdvised(const Candidate& candidate, const RenewalSettings& settings,
                      RenewalAdviser& adviser) {
  const std::string& folder = candidate.archived.folder;
  const bool is_asked_for = settings.renew_any_issuer || settings.renewal_info;
  const std::optional<RenewalRecord> record = is_asked_for ? UsableRecord(folder) : std::nullopt;
  const Prospect prospect = Judge(candidate, record, settings);
  if (prospect != Prospect::kNotDue) return prospect;
  if (IsAdvised(candidate, record, settings, adviser)) return Prospect::kRenewed;
  DebugStep("cert is not expired. [%s]", folder.c_str());
  return Prospect::kNotDue;
}

// One that no rule takes, or that is taken and then fails for the lack of its record.
Prospect WithoutRecord(const std::string& folder) {
  return KLIBCFileExist(RenewalRecordPath(folder)) ? Prospect::kUnusableRecord
                                                   : Prospect::kNoRecord;
}

}  // namespace

Prospect ProspectOf(const ArchivedCertificate& certificate, const RenewalSettings& settings) {
  const Candidate candidate(certificate);
  if (!candidate.certificate) return Prospect::kUnreadable;
  if (!EndsSoon(candidate, DueRule::Of(settings))) return Prospect::kNotDue;
  const std::optional<RenewalRecord> record = UsableRecord(certificate.folder);
  return record ? Judge(candidate, record, settings) : WithoutRecord(certificate.folder);
}

std::vector<DueCertificate> DueCertificates(const RenewalSettings& settings) {
  const std::vector<std::string> ids = ListCertificateIds(kTag);
  TellUnusable(settings);
  RenewalAdviser adviser(settings);
  std::vector<DueCertificate> due;
  for (const std::string& id : ids) {
    const ArchivedCertificate certificate = ArchivedCertificate::OfId(id);
    if (!HasFolder(certificate, kTag)) continue;
    FinishRenewal(certificate);
    const Candidate candidate(certificate);
    const bool to_renew = JudgeAdvised(candidate, settings, adviser) == Prospect::kRenewed;
    if (to_renew || IsRenewalNoted(certificate)) due.push_back({certificate, to_renew});
  }
  return due;
}

Prospect AdvisedProspectOf(const ArchivedCertificate& certificate,
                           const RenewalSettings& settings) {
  TellUnusable(settings);
  RenewalAdviser adviser(settings);
  return JudgeAdvised(Candidate(certificate), settings, adviser);
}

bool IsEverRenewed(const ArchivedCertificate& certificate, const RenewalSettings& settings) {
  const Candidate candidate(certificate);
  return Judge(candidate, UsableRecord(certificate.folder), settings) != Prospect::kOtherIssuer;
}

}  // namespace kova
