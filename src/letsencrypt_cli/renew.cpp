#include "lifecycle/renew.h"

#include "letsencrypt_cli/commands.h"
#include "letsencrypt_cli/options.h"
#include "letsencrypt_cli/outcome.h"

namespace kova {

// An empty id is not refused here: it has no renewal record.
int RenewCommand(int argc, char** argv) {
  CommandOptions given;
  if (!ParseOptions(argc, argv, "c:v::", given)) {
    PrintUsage();
    return 1;
  }
  const RenewalSettings settings = RenewalSettings::Read();
  ApplyDebugSettings(settings);
  TellIgnoredKeys(settings);
  const RenewalOutcome outcome = Renew(ArchivedCertificate::OfId(given.certificate_id), settings);
  if (outcome.failure) PrintFailure(*outcome.failure);
  if (!outcome.renewed) return 1;
  PrintSuccess("id", given.certificate_id);
  return 0;
}

}  // namespace kova
