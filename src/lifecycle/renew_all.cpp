#include "lifecycle/renew_all.h"

namespace kova {
namespace {

// True when it was deployed and serves the system's default service.
bool RenewAndRedeploy(const DueCertificate& due, const RenewalSettings& settings,
                      const FailureObserver& on_failure) {
  if (due.to_renew) {
    const RenewalOutcome outcome = RenewToDeploy(due.certificate, settings);
    if (outcome.failure) on_failure(*outcome.failure);
  }
  // Redeployed even when that failed.
  const Redeployment redeployment = Redeploy(due.certificate);
  if (redeployment.failure) on_failure(*redeployment.failure);  // and the next run tries again
  return redeployment.serves_system;
}

}  // namespace

void RenewAll(const RenewalSettings& settings, const FailureObserver& on_failure) {
  const RenewalRun run;  // what is due is decided anew after another run
  bool need_restart = false;
  for (const DueCertificate& due : DueCertificates(settings)) {
    if (RenewAndRedeploy(due, settings, on_failure)) need_restart = true;
  }
  if (need_restart) (void)RestartWebFrontend();
}

}  // namespace kova
