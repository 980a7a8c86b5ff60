#include "lifecycle/revoke.h"

#include <unistd.h>

#include <exception>
#include <optional>
#include <string>

#include "acme_v1/acme_v1.h"
#include "acme_v2/client_v2.h"
#include "archive/certificate_lock.h"
#include "base/debug.h"
#include "base/files.h"
#include "base/log.h"
#include "base/sl_error.h"
#include "lifecycle/renewal_files.h"
#include "lifecycle/renewal_record.h"

namespace kova {
namespace {

constexpr char kTag[] = "kova-letsencrypt";

// The record of the certificate that was revoked, and of no other that took its place since.
void RemoveRecordOf(const ArchivedCertificate& certificate, const std::string& revoked) {
  if (!cert_archive::IsPlainName(certificate.id)) return RemoveRenewalRecord(certificate.folder);
  const cert_archive::CertificateLock lock(certificate.id);
  if (ReadTextFile(certificate.folder + "/cert.pem") == revoked) {
    RemoveRenewalRecord(certificate.folder);
  } else {
    LogError(kTag, "renewed while it was revoked. [%s]", certificate.folder.c_str());
  }
}

void RevokeWithV2(const ArchivedCertificate& certificate, const RenewalRecord& record,
                  const Settings& settings, const RevokeOptions& options) {
  const std::string& folder = certificate.folder;
  AcmeV2Client client(record.server, settings);
  DebugStep("revoke with v2. [%s].", folder.c_str());
  client.SetupDirectory();
  client.LoadAccount(record.account);
  client.NewNonce();
  RemoveRecordOf(certificate, client.RevokeAtCa(folder, options));
}

void RevokeByRecord(const ArchivedCertificate& certificate, const RenewalRecord& record,
                    const Settings& settings, const RevokeOptions& options) {
  if (record.version == 1) {
    RevokeWithAcmeV1(record.server, record.account, certificate.folder, settings);
  } else {
    RevokeWithV2(certificate, record, settings, options);
  }
}

void LogFailure(const std::string& folder, const std::string& reason) {
  LogError(kTag, "revoke failed. [%s][%s]", folder.c_str(), OnOneLine(reason).c_str());
}

}  // namespace

void Revoke(const ArchivedCertificate& certificate, const Settings& settings,
            const RevokeOptions& options) {
  const std::string& folder = certificate.folder;
  FinishRenewal(certificate);
  const std::string path = RenewalRecordPath(folder);
  if (access(path.c_str(), F_OK) != 0) {
    LogError(kTag, "renew json not exist. [%s]", path.c_str());
    return;
  }
  const std::optional<RenewalRecord> record = RecordOrMessage(folder);
  if (!record) return;
  try {
    RevokeByRecord(certificate, *record, settings, options);
  } catch (const SLError& error) {
    LogFailure(folder, error.message);
    throw;
  } catch (const std::exception& error) {
    LogFailure(folder, error.what());
    throw;
  }
  DebugStep("revoke success. [%s].", folder.c_str());
}

}  // namespace kova
