#include "lifecycle/renew_all.h"

#include <chrono>
#include <string>

#include "archive/deploy.h"
#include "archive/integrity.h"
#include "archive/service_object.h"
#include "base/file_lock.h"
#include "base/log.h"
#include "lifecycle/due.h"
#include "lifecycle/failure.h"
#include "lifecycle/removal.h"
#include "lifecycle/renew.h"
#include "lifecycle/renewal_files.h"
#include "platform/service.h"

namespace kova {
namespace {

constexpr char kTag[] = "kova-letsencrypt";
constexpr char kRunLock[] = "/run/kova-renew-all.lock";
constexpr std::chrono::hours kRunTimeout{12};

// True when the certificate serves the system's default service. Throws SLError 201.
bool Redeploy(const ArchivedCertificate& certificate) {
  // Its folder may be gone since it was found to be due.
  if (cert_archive::CertificateIdOfPath(certificate.folder).empty()) {
    throw Error(code::kAccountKey, kTag, "Cant get  certid: " + certificate.folder);
  }
  Json::Value services;
  if (!cert_archive::EnsureServices(certificate.id, services)) {
    throw Error(code::kAccountKey, kTag, "Cant get  service list: " + certificate.id);
  }
  if (!cert_archive::RedeployListed(certificate.id, services)) {
    throw Error(code::kAccountKey, kTag, "service depoly failed: " + certificate.id);
  }
  return cert_archive::HasSystemDefault(services);
}

// True when it was deployed and serves the system's default service.
bool RenewAndRedeploy(const DueCertificate& due, const RenewalSettings& settings,
                      const FailureObserver& on_failure) {
  if (due.to_renew) {
    const RenewalOutcome outcome = RenewToDeploy(due.certificate, settings);
    if (outcome.failure) on_failure(*outcome.failure);
  }
  bool serves_system = false;
  // Redeployed even when that failed.
  const std::optional<SLError> failure =
      Capture([&] { serves_system = Redeploy(due.certificate); });
  if (failure) {
    on_failure(*failure);  // and the next run tries again
  } else {
    ForgetRenewal(due.certificate);
  }
  return serves_system;
}

void RestartWebFrontend() {
  kovaw3::Engine engine;
  if (!kovaw3::Omx(engine).RestartService()) LogError(kTag, "Failed to restart the web front-end.");
}

}  // namespace

void RenewAll(const RenewalSettings& settings, const FailureObserver& on_failure) {
  // What is due is decided anew after another run. Without the lock it is done all the same: each
  // certificate has one of its own.
  const FileLock only_run(kTag, kRunLock, kRunTimeout);
  FinishRemovals();
  cert_archive::FinishInterruptedDeployment();
  bool need_restart = false;
  for (const DueCertificate& due : DueCertificates(settings)) {
    if (RenewAndRedeploy(due, settings, on_failure)) need_restart = true;
  }
  if (need_restart) RestartWebFrontend();
}

}  // namespace kova
