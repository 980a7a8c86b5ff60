#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "archive/deploy.h"
#include "archive/expiry.h"
#include "archive/paths.h"
#include "archive/service_object.h"
#include "archive/services.h"
#include "base/debug.h"
#include "base/json.h"
#include "base/log.h"
#include "base/settings.h"
#include "base/sl_error.h"
#include "crypto/certificate.h"
#include "lifecycle/acme_folders.h"
#include "letsencrypt_cli/commands.h"
#include "letsencrypt_cli/options.h"
#include "lifecycle/failure.h"
#include "lifecycle/renew.h"
#include "platform/files.h"
#include "platform/service.h"

namespace kova {
namespace {

constexpr char kTag[] = "kova-letsencrypt";
constexpr char kRenewedIssuer[] = "Let's Encrypt";

int LeadDays(const Settings& settings) {
  errno = 0;
  if (!KLIBCFileExist(kSettingsPath)) {
    LogError(kTag, "File not exist. [%s]: [%s]", std::strerror(errno), kSettingsPath);
    return kDefaultLeadDays;
  }
  if (!settings.usable) {
    LogError(kTag, "Read json file failed. [%s]: [%s]", std::strerror(settings.read_error),
             kSettingsPath);
    return kDefaultLeadDays;
  }
  return settings.renew_before_expire_days.value_or(kDefaultLeadDays);
}

// Issuer and expiry decide, the renewal record does not: a certificate without one fails to be
// renewed, and is redeployed all the same.
bool IsDue(const std::string& folder, int lead_days) {
  const std::string certificate = folder + "/cert.pem";
  const std::string issuer = IssuerOrganization(certificate);
  if (issuer.empty()) return false;
  DebugStep("Issuer name of certificate. [%s]->[%s]", issuer.c_str(), certificate.c_str());
  if (issuer.find(kRenewedIssuer) == std::string::npos) {
    DebugStep("certificate is not issued by Let's encrypt. [%s]", certificate.c_str());
    return false;
  }
  if (!cert_archive::ExpiresWithin(certificate, lead_days)) {
    DebugStep("cert is not expired. [%s]", folder.c_str());
    return false;
  }
  return true;
}

std::vector<std::string> DueFolders(const Settings& settings) {
  const std::vector<std::string> ids = ListCertificateIds(kTag);
  const int lead_days = LeadDays(settings);
  std::vector<std::string> due;
  for (const std::string& id : ids) {
    const std::string folder = cert_archive::CertificateFolder(id);
    errno = 0;
    if (!KLIBCFileCheckDir(folder)) {
      LogError(kTag, "Folder not exist. [%s][%s]", std::strerror(errno), folder.c_str());
    } else if (IsDue(folder, lead_days)) {
      due.push_back(folder);
    }
  }
  return due;
}

// True when the certificate serves the system's default service. Throws SLError 201.
bool Redeploy(const std::string& folder) {
  const std::string id = cert_archive::CertificateIdOfPath(folder);
  if (id.empty()) throw Error(code::kAccountKey, kTag, "Cant get  certid: " + folder);
  Json::Value services;
  if (!cert_archive::GetServices(id, services)) {
    throw Error(code::kAccountKey, kTag, "Cant get  service list: " + id);
  }
  if (!cert_archive::RegisterAndDeploy(id, services, "", cert_archive::kActionRedeploy)) {
    throw Error(code::kAccountKey, kTag, "service depoly failed: " + id);
  }
  return cert_archive::HasSystemDefault(services);
}

void RestartWebFrontend() {
  kovaw3::Engine engine;
  if (!kovaw3::Omx(engine).RestartService()) LogError(kTag, "Failed to restart the web front-end.");
}

void RenewAll(const Settings& settings) {
  bool need_restart = false;
  for (const std::string& folder : DueFolders(settings)) {
    const std::optional<SLError> failure = Capture([&folder, &settings, &need_restart] {
      RenewFolder(folder, settings);  // redeployed even when this failed
      if (Redeploy(folder)) need_restart = true;
    });
    if (failure) PrintFailure(*failure);
  }
  if (need_restart) RestartWebFrontend();
}

}  // namespace

int RenewAllCommand(int argc, char** argv) {
  CommandOptions options;
  if (!ParseOptions(argc, argv, "v::", options)) {
    PrintUsage();
    return 1;
  }
  const Settings settings = Settings::Read();
  ApplyDebugSettings(settings);
  RenewAll(settings);
  return 0;
}

}  // namespace kova
