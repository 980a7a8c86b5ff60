#include <unistd.h>

#include <exception>
#include <optional>
#include <string>

#include "acme_v1/acme_v1.h"
#include "acme_v2/client_v2.h"
#include "archive/paths.h"
#include "base/debug.h"
#include "base/log.h"
#include "base/settings.h"
#include "base/sl_error.h"
#include "lifecycle/acme_folders.h"
#include "letsencrypt_cli/commands.h"
#include "letsencrypt_cli/options.h"
#include "lifecycle/failure.h"
#include "lifecycle/renewal_job.h"
#include "lifecycle/renewal_record.h"

namespace kova {
namespace {

constexpr char kTag[] = "kova-letsencrypt";

void RevokeWithV2(const std::string& folder, const RenewalRecord& record,
                  const Settings& settings) {
  AcmeV2Client client(record.server, settings);
  DebugStep("revoke with v2. [%s].", folder.c_str());
  client.SetupDirectory();
  client.LoadAccount(record.account);
  client.NewNonce();
  client.RevokeCertificate(folder);
}

void Revoke(const std::string& folder, const RenewalRecord& record, const Settings& settings) {
  if (record.version == 1) {
    RevokeWithAcmeV1(record.server, record.account, folder);
  } else {
    RevokeWithV2(folder, record, settings);
  }
}

void LogFailure(const std::string& folder, const std::string& reason) {
  LogError(kTag, "revoke failed. [%s][%s]", folder.c_str(), reason.c_str());
}

// Problems with the record are only logged. What the clients throw ends the process on purpose, so
// the system log alone can say what it was.
void RevokeFolder(const std::string& folder, const Settings& settings) {
  const std::string path = RenewalRecordPath(folder);
  if (access(path.c_str(), F_OK) != 0) {
    LogError(kTag, "renew json not exist. [%s]", path.c_str());
    return;
  }
  const std::optional<RenewalRecord> record = RecordOrMessage(folder);
  if (!record) return;
  if (record->version != 1 && record->version != 2) {
    LogWrongVersion(folder);
    return;
  }
  try {
    Revoke(folder, *record, settings);
  } catch (const SLError& error) {
    LogFailure(folder, error.message);
    throw;
  } catch (const std::exception& error) {
    LogFailure(folder, error.what());
    throw;
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
  const Settings settings = Settings::Read();
  ApplyDebugSettings(settings);
  DebugStep("revoke certificate. [%s].", options.certificate_id.c_str());
  const std::string folder = cert_archive::CertificateFolder(options.certificate_id);
  RevokeFolder(folder, settings);
  PrintSuccess("cert_path", folder);
  if (ListAcmeFolders().empty()) RemoveRenewalJob();
  return 0;
}

}  // namespace kova
