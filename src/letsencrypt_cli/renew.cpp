#include "lifecycle/renew.h"

#include "letsencrypt_cli/commands.h"
#include "letsencrypt_cli/options.h"
#include "letsencrypt_cli/terminal.h"
#include "lifecycle/advice.h"
#include "lifecycle/renewal_record.h"

namespace kova {

namespace {

// On a terminal also what has no document of its own: a record that cannot be used.
void TellOutcome(const RenewalOutcome& outcome, const std::string& id) {
  if (outcome.renewed) return;
  if (outcome.failure) return TellFailure(*outcome.failure, {id});
  std::string why = WhyUnusable(ArchivedCertificate::OfId(id).folder);
  if (why.empty()) why = "its renewal record cannot be used";
  TellFailure(Error(kUnusableRecord, "kova-letsencrypt", why), {id});
}

}  // namespace

// An empty id is not refused here: it has no renewal record.
int RenewCommand(int argc, char** argv) {
  CommandOptions given;
  if (!ParseOptions(argc, argv, "c:v::", given)) {
    PrintUsage();
    return 1;
  }
  TellMissingRoot();
  TellUnknownCertificate(given.certificate_id);
  const RenewalSettings settings = RenewalSettings::Read();
  ApplyDebugSettings(settings);
  TellIgnoredKeys(settings);
  const RenewalOutcome outcome = Renew(ArchivedCertificate::OfId(given.certificate_id), settings);
  if (outcome.failure) PrintFailure(*outcome.failure);
  TellOutcome(outcome, given.certificate_id);
  if (!outcome.renewed) return 1;
  PrintSuccess("id", given.certificate_id);
  return 0;
}

}  // namespace kova
