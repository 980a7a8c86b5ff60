#include "lifecycle/revoke.h"

#include "base/debug.h"
#include "letsencrypt_cli/commands.h"
#include "letsencrypt_cli/options.h"
#include "letsencrypt_cli/outcome.h"
#include "lifecycle/renewal_job.h"

namespace kova {

// What the authority refuses is deliberately not caught: it ends the process abnormally.
int RevokeCommand(int argc, char** argv) {
  CommandOptions given;
  if (!ParseOptions(argc, argv, "c:v::", given) || given.certificate_id.empty()) {
    PrintUsage();
    return 1;
  }
  const Settings settings = Settings::Read();
  ApplyDebugSettings(settings);
  TellIgnoredKeys(settings);
  DebugStep("revoke certificate. [%s].", given.certificate_id.c_str());
  const ArchivedCertificate certificate = ArchivedCertificate::OfId(given.certificate_id);
  Revoke(certificate, settings);
  PrintSuccess("cert_path", certificate.folder);
  RemoveRenewalJobWhenUnused();
  return 0;
}

}  // namespace kova
