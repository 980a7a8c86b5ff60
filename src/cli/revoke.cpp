#include <unistd.h>

#include "acme_v1/acme_v1.h"
#include "acme_v2/client_v2.h"
#include "base/debug.h"
#include "base/log.h"
#include "base/settings.h"
#include "certificate/paths.h"
#include "cli/acme_folders.h"
#include "cli/commands.h"
#include "cli/options.h"
#include "cli/outcome.h"
#include "cli/renewal_job.h"
#include "cli/renewal_record.h"

namespace kova {
namespace {

constexpr char kTag[] = "kova-letsencrypt";

void RevokeWithV2(const std::string& folder, const RenewalRecord& record) {
  AcmeV2Client client(record.server);
  DebugStep("revoke with v2. [%s].", folder.c_str());
  client.SetupDirectory();
  client.LoadAccount(record.account);
  client.NewNonce();
  client.RevokeCertificate(folder);
}

// Problems with the record are only logged; what the clients throw is not caught.
void RevokeFolder(const std::string& folder) {
  const std::string path = RenewalRecordPath(folder);
  if (access(path.c_str(), F_OK) != 0) {
    LogError(kTag, "renew json not exist. [%s]", path.c_str());
    return;
  }
  const std::optional<RenewalRecord> record = ReadRenewalRecord(folder);
  if (!record) return;
  switch (record->version) {
    case 1:
      RevokeWithAcmeV1(record->server, record->account, folder);
      break;
    case 2:
      RevokeWithV2(folder, *record);
      break;
    default:
      LogWrongVersion(folder);
      return;
  }
  DebugStep("revoke success. [%s].", folder.c_str());
}

}  // namespace

int RevokeCommand(int argc, char** argv) {
  CommandOptions options;
  if (!ParseOptions(argc, argv, "c:v::", options) || options.certificate_id.empty()) {
    PrintUsage();
    return 1;
  }
  ApplyDebugSettings();
  DebugStep("revoke certificate. [%s].", options.certificate_id.c_str());
  const std::string folder = cert_archive::CertificateFolder(options.certificate_id);
  RevokeFolder(folder);
  PrintSuccess("cert_path", folder);
  if (ListAcmeFolders().empty()) RemoveRenewalJob();
  return 0;
}

}  // namespace kova
