#include "lifecycle/renew.h"

#include <cerrno>
#include <cstring>

#include "acme/account_store.h"
#include "acme_v2/client_v2.h"
#include "archive/paths.h"
#include "base/debug.h"
#include "base/json.h"
#include "base/log.h"
#include "letsencrypt_cli/commands.h"
#include "lifecycle/issue.h"
#include "letsencrypt_cli/options.h"
#include "lifecycle/failure.h"
#include "lifecycle/renewal_record.h"
#include "lifecycle/renewal_files.h"
#include "platform/files.h"

namespace kova {
namespace {

constexpr char kTag[] = "kova-letsencrypt";
constexpr int kRecordProblem = 1;

// A record of the early protocol: its server speaks it and is left behind for the settings' one.
int MigrateToV2(const std::string& folder, const RenewalRecord& record, const Settings& settings) {
  Json::Value account;
  if (!ReadAccountInfo(record.account, account)) return kRecordProblem;
  const std::string fresh = IssueWithAcmeV2(settings.server, record.domains,
                                            TextMember(account, "contact"), "", settings);
  MoveRenewalFiles(fresh, folder);
  RemoveFolder(fresh);
  return 0;
}

// A single attempt with the first challenge type; another type is not tried.
int RenewV2(const std::string& folder, const RenewalRecord& record, const Settings& settings) {
  DebugStep("start to renew [%s].", folder.c_str());
  const std::vector<std::string> domains = SplitDomainList(record.domains);
  if (domains.empty()) return 0;  // deliberately as good as renewed
  std::string fresh;
  {
    AcmeV2Client client(record.server, settings);
    client.SetupDirectory();
    client.LoadAccount(record.account);
    client.NewNonce();
    client.NewOrder(domains);
    client.AuthorizeOrder();
    fresh = client.NewCertificate(domains, "");
    MoveRenewalFiles(fresh, folder);
    DebugStep("renew success. [%s].", folder.c_str());
  }
  RemoveFolder(fresh);
  return 0;
}

}  // namespace

int RenewFolder(const std::string& folder, const Settings& settings) {
  const std::string path = RenewalRecordPath(folder);
  errno = 0;
  if (!KLIBCFileExist(path)) {
    LogError(kTag, "can not find renew.json. [%s][%s]", std::strerror(errno), path.c_str());
    return kRecordProblem;
  }
  const std::optional<RenewalRecord> record = RecordOrMessage(folder);
  if (!record) return kRecordProblem;
  if (record->version != 1 && record->version != 2) {
    LogWrongVersion(folder);
    return kRecordProblem;
  }
  int result = 0;
  const std::optional<SLError> failure = Capture([&] {
    result = record->version == 1 ? MigrateToV2(folder, *record, settings)
                                  : RenewV2(folder, *record, settings);
  });
  if (!failure) return result;
  PrintFailure(*failure);
  return failure->code;
}

int RenewCommand(int argc, char** argv) {
  CommandOptions options;
  if (!ParseOptions(argc, argv, "c:v::", options)) {
    PrintUsage();
    return 1;
  }
  const Settings settings = Settings::Read();
  ApplyDebugSettings(settings);
  if (RenewFolder(cert_archive::CertificateFolder(options.certificate_id), settings) != 0) return 1;
  PrintSuccess("id", options.certificate_id);
  return 0;
}

}  // namespace kova
