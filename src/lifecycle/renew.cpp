#include "lifecycle/renew.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "acme/account_store.h"
#include "acme/issued_folder.h"
#include "acme_v2/client_v2.h"
#include "acme_v2/renewal_info.h"
#include "base/debug.h"
#include "base/json.h"
#include "base/log.h"
#include "crypto/certificate.h"
#include "lifecycle/failure.h"
#include "lifecycle/issue.h"
#include "lifecycle/names.h"
#include "lifecycle/renewal_files.h"
#include "lifecycle/renewal_history.h"
#include "lifecycle/renewal_job.h"
#include "lifecycle/renewal_record.h"
#include "platform/files.h"
#include "platform/service.h"

namespace kova {
namespace {

constexpr char kTag[] = "kova-letsencrypt";
constexpr char kFailedNotification[] = "certificate_renew_failed";
constexpr char kRecordProblem[] = "the renewal record cannot be used";

// Of a renewal the names and the server are settled; the certificate's own folder is filled when
// all is there.
IssueOptions OptionsOf(const RenewalRecord& record, const Settings& settings) {
  IssueOptions options;
  options.server = record.server;
  options.names = SplitDomainList(record.domains);
  options.profile = record.profile;
  options.preferred_chain = record.preferred_chain;
  ChooseKeyType(record.key_type, settings, options);
  return options;
}

// A record of the early protocol: its server speaks it and is left behind for the settings' one.
bool MigrateToV2(const ArchivedCertificate& certificate, const RenewalRecord& record,
                 const RenewalSettings& settings) {
  Json::Value account;
  if (!ReadAccountInfo(record.account, account)) {
    LogError(kTag, "can not read the account of a version 1 record. [%s]",
             AccountInfoPath(record.account).c_str());
    return false;
  }
  IssueOptions options = OptionsOf(record, settings);
  options.server = settings.server;
  options.contact = TextMember(account, "contact");
  const std::string fresh = IssueWithAcmeV2(options, settings);
  PutInPlace(certificate, fresh);
  RemoveFolder(fresh);
  return true;
}

// What the order says that it replaces.
std::string ReplacedBy(const ArchivedCertificate& certificate, const RenewalSettings& settings) {
  if (!settings.renewal_info) return {};
  const std::optional<Certificate> old = Certificate::FromFile(certificate.folder + "/cert.pem");
  return old ? RenewalIdentifier(*old) : std::string();
}

// A single attempt with the first challenge type; another type is not tried.
bool RenewWithV2(const ArchivedCertificate& certificate, const RenewalRecord& record,
                 const RenewalSettings& settings) {
  DebugStep("start to renew [%s].", certificate.folder.c_str());
  const IssueOptions options = OptionsOf(record, settings);
  if (options.names.empty()) return true;  // deliberately as good as renewed
  std::string fresh;
  {
    CertificateKey key(options.key_type);
    key.MakeAhead();
    AcmeV2Client client(options.server, settings);
    client.SetupDirectory();
    client.LoadAccount(record.account);
    client.NewNonce();
    const Order order =
        client.NewOrder(options.names, options.profile, ReplacedBy(certificate, settings));
    client.AuthorizeOrder(order);
    fresh = client.NewCertificate(order, options, key);
    PutInPlace(certificate, fresh);
    DebugStep("renew success. [%s].", certificate.folder.c_str());
  }
  RemoveFolder(fresh);
  return true;
}

// None, with a message, when the certificate cannot be renewed from what its folder holds.
std::optional<RenewalRecord> UsableRecord(const std::string& folder) {
  const std::string path = RenewalRecordPath(folder);
  errno = 0;
  if (!KLIBCFileExist(path)) {
    LogError(kTag, "can not find renew.json. [%s][%s]", std::strerror(errno), path.c_str());
    return std::nullopt;
  }
  return RecordOrMessage(folder);
}

RenewalOutcome Attempt(const ArchivedCertificate& certificate, const RenewalSettings& settings) {
  const std::optional<RenewalRecord> record = UsableRecord(certificate.folder);
  if (!record) return {};
  RenewalOutcome outcome;
  outcome.failure = Capture([&] {
    outcome.renewed = record->version == 1 ? MigrateToV2(certificate, *record, settings)
                                           : RenewWithV2(certificate, *record, settings);
  });
  if (outcome.failure && outcome.failure->name.empty()) {
    outcome.failure->name = JoinNames(SplitDomainList(record->domains), ", ");
  }
  return outcome;
}

// Tells the host of a failure, once a day.
void Notify(const ArchivedCertificate& certificate, RenewalHistory& history, std::int64_t now) {
  if (!IsToBeNotified(history, now)) return;
  history.last_notice = TimeText(now);
  const std::vector<std::string> words = {certificate.id, OnOneLine(history.message)};
  if (platform::SendNotification(kFailedNotification, words) == 0) return;
  LogError(kTag, "Failed to send notification for failed renewal. [%s]", certificate.id.c_str());
}

// What became of it, for the runs to come.
void Remember(const ArchivedCertificate& certificate, const RenewalOutcome& outcome) {
  if (!cert_archive::IsPlainName(certificate.id)) return;
  const std::int64_t now = std::time(nullptr);
  TellUnusableHistory(certificate.id);
  RenewalHistory history = ReadRenewalHistory(certificate.id);
  if (outcome.renewed) {
    NoteSuccess(history, now);
  } else {
    // A problem with the record is in the log already.
    if (outcome.failure) LogFailure("renew", certificate.folder, *outcome.failure);
    NoteFailure(history, outcome.failure.value_or(Error(1, kTag, kRecordProblem)), now);
    Notify(certificate, history, now);
  }
  WriteRenewalHistory(certificate.id, history);
}

}  // namespace

RenewalOutcome RenewToDeploy(const ArchivedCertificate& certificate,
                             const RenewalSettings& settings) {
  FinishRenewal(certificate);
  RenewalOutcome outcome = Attempt(certificate, settings);
  if (settings.renew_failures) Remember(certificate, outcome);
  if (outcome.renewed) CorrectRenewalJob(settings);
  return outcome;
}

RenewalOutcome Renew(const ArchivedCertificate& certificate, const RenewalSettings& settings) {
  const bool still_to_be_deployed = IsDeploymentDue(certificate);
  RenewalOutcome outcome = RenewToDeploy(certificate, settings);
  if (outcome.renewed && !still_to_be_deployed) ForgetRenewal(certificate);
  return outcome;
}

}  // namespace kova
