#include "lifecycle/revoke.h"

#include <exception>

#include "base/debug.h"
#include "letsencrypt_cli/commands.h"
#include "letsencrypt_cli/options.h"
#include "letsencrypt_cli/terminal.h"
#include "lifecycle/renewal_job.h"
#include "lifecycle/renewal_record.h"
#include "platform/signals.h"

namespace kova {

namespace {

// What the authority refuses is deliberately thrown on: it ends the process abnormally.
void RevokeVisibly(const ArchivedCertificate& certificate, const Settings& settings) {
  try {
    Revoke(certificate, settings);
  } catch (const SLError& error) {
    TellFailure(error, {certificate.id});
    throw;
  } catch (const std::exception& error) {
    TellFailure(Error(code::kLocal, "kova-letsencrypt", error.what()), {certificate.id});
    throw;
  }
}

// What is only a line in the log is a success for programs.
void TellNothingToRevoke(const ArchivedCertificate& certificate) {
  const std::string why = WhyUnusable(certificate.folder);
  if (!why.empty()) TellPeople("[" + certificate.id + "] cannot be revoked: " + why);
}

}  // namespace

int RevokeCommand(int argc, char** argv) {
  CommandOptions given;
  if (!ParseOptions(argc, argv, "c:v::", given) || given.certificate_id.empty()) {
    PrintUsage();
    return 1;
  }
  TellMissingRoot();
  TellUnknownCertificate(given.certificate_id);
  const Settings settings = Settings::Read();
  ApplyDebugSettings(settings);
  TellIgnoredKeys(settings);
  DebugStep("revoke certificate. [%s].", given.certificate_id.c_str());
  const ArchivedCertificate certificate = ArchivedCertificate::OfId(given.certificate_id);
  TellNothingToRevoke(certificate);
  RevokeVisibly(certificate, settings);
  PrintSuccess("cert_path", certificate.folder);
  platform::HoldSignals();  // or the job would stay behind a revocation that is done
  RemoveRenewalJobWhenUnused();
  return 0;
}

}  // namespace kova
