#include "lifecycle/renew.h"

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "acme/account_store.h"
#include "acme_v2/client_v2.h"
#include "base/debug.h"
#include "base/json.h"
#include "base/log.h"
#include "lifecycle/failure.h"
#include "lifecycle/issue.h"
#include "lifecycle/names.h"
#include "lifecycle/renewal_files.h"
#include "lifecycle/renewal_record.h"
#include "platform/files.h"

namespace kova {
namespace {

constexpr char kTag[] = "kova-letsencrypt";

// Of a renewal the names and the server are settled; the certificate's own folder is filled when
// all is there.
IssueOptions OptionsOf(const RenewalRecord& record, const Settings& settings) {
  IssueOptions options;
  options.server = record.server;
  options.names = SplitDomainList(record.domains);
  ChooseKeyType(record.key_type, settings, options);
  return options;
}

// A record of the early protocol: its server speaks it and is left behind for the settings' one.
bool MigrateToV2(const ArchivedCertificate& certificate, const RenewalRecord& record,
                 const Settings& settings) {
  Json::Value account;
  if (!ReadAccountInfo(record.account, account)) return false;
  IssueOptions options = OptionsOf(record, settings);
  options.server = settings.server;
  options.contact = TextMember(account, "contact");
  const std::string fresh = IssueWithAcmeV2(options, settings);
  PutInPlace(certificate, fresh);
  RemoveFolder(fresh);
  return true;
}

// A single attempt with the first challenge type; another type is not tried.
bool RenewWithV2(const ArchivedCertificate& certificate, const RenewalRecord& record,
                 const Settings& settings) {
  DebugStep("start to renew [%s].", certificate.folder.c_str());
  const IssueOptions options = OptionsOf(record, settings);
  if (options.names.empty()) return true;  // deliberately as good as renewed
  std::string fresh;
  {
    AcmeV2Client client(options.server, settings);
    client.SetupDirectory();
    client.LoadAccount(record.account);
    client.NewNonce();
    const Order order = client.NewOrder(options.names);
    client.AuthorizeOrder(order);
    fresh = client.NewCertificate(order, options);
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

}  // namespace

RenewalOutcome RenewToDeploy(const ArchivedCertificate& certificate, const Settings& settings) {
  FinishRenewal(certificate);
  const std::optional<RenewalRecord> record = UsableRecord(certificate.folder);
  if (!record) return {};
  RenewalOutcome outcome;
  outcome.failure = Capture([&] {
    outcome.renewed = record->version == 1 ? MigrateToV2(certificate, *record, settings)
                                           : RenewWithV2(certificate, *record, settings);
  });
  return outcome;
}

RenewalOutcome Renew(const ArchivedCertificate& certificate, const Settings& settings) {
  const bool still_to_be_deployed = IsRenewalNoted(certificate);
  const RenewalOutcome outcome = RenewToDeploy(certificate, settings);
  if (outcome.renewed && !still_to_be_deployed) ForgetRenewal(certificate);
  return outcome;
}

}  // namespace kova
