#include "lifecycle/renewal_run.h"

#include <chrono>
#include <string>

#include "archive/deploy.h"
#include "archive/integrity.h"
#include "archive/service_object.h"
#include "base/log.h"
#include "lifecycle/failure.h"
#include "lifecycle/removal.h"
#include "lifecycle/renewal_files.h"
#include "platform/service.h"

namespace kova {
namespace {

constexpr char kTag[] = "kova-letsencrypt";
constexpr std::chrono::hours kRunTimeout{12};

SLError NotDeployed(const ArchivedCertificate& certificate, const Status& deployed) {
  SLError error = Error(code::kAccountKey, kTag, "service depoly failed: " + certificate.id);
  error.cause = deployed.Text();
  return error;
}

// True when the certificate serves the system's default service. Throws SLError 201.
bool RedeployOrThrow(const ArchivedCertificate& certificate) {
  // Its folder may be gone since it was found to be due.
  if (cert_archive::CertificateIdOfPath(certificate.folder).empty()) {
    throw Error(code::kAccountKey, kTag, "Cant get  certid: " + certificate.folder);
  }
  Json::Value services;
  if (!cert_archive::EnsureServices(certificate.id, services)) {
    throw Error(code::kAccountKey, kTag, "Cant get  service list: " + certificate.id);
  }
  if (const Status deployed = cert_archive::RedeployListed(certificate.id, services); !deployed) {
    throw NotDeployed(certificate, deployed);
  }
  return cert_archive::HasSystemDefault(services);
}

}  // namespace

RenewalRun::RenewalRun() : only_run_(kTag, kRunLock, kRunTimeout) {
  FinishRemovals();
  cert_archive::FinishInterruptedDeployment();
}

Redeployment Redeploy(const ArchivedCertificate& certificate) {
  Redeployment redeployment;
  redeployment.failure =
      Capture([&] { redeployment.serves_system = RedeployOrThrow(certificate); });
  if (!redeployment.failure) ForgetRenewal(certificate);
  return redeployment;
}

bool RestartWebFrontend() {
  kovaw3::Engine engine;
  if (kovaw3::Omx(engine).RestartService()) return true;
  LogError(kTag, "Failed to restart the web front-end.");
  return false;
}

}  // namespace kova
