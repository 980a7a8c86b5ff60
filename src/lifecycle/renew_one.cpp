#include "base/progress.h"
#include "lifecycle/renew_all.h"
#include "lifecycle/renewal_files.h"

namespace kova {
namespace {

void HandOn(const ArchivedCertificate& certificate, OneRenewal& one) {
  ShowStage("", "handing the certificate to its services");
  one.redeployment = Redeploy(certificate);
  if (one.redeployment->serves_system) one.web_frontend_failed = !RestartWebFrontend();
}

}  // namespace

OneRenewal RenewOne(const ArchivedCertificate& certificate, const RenewalSettings& settings,
                    bool force) {
  ShowStage("", "waiting for other renewals to end");
  const RenewalRun run;
  FinishRenewal(certificate);
  OneRenewal one;
  if (!force) one.found = AdvisedProspectOf(certificate, settings);
  if (one.found == Prospect::kRenewed) one.renewal = RenewToDeploy(certificate, settings);
  if (one.found == Prospect::kRenewed || IsRenewalNoted(certificate)) HandOn(certificate, one);
  return one;
}

}  // namespace kova
