// The services of this host's certificates: whether a renewal would reach them.
#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <map>
#include <optional>

#include "archive/paths.h"
#include "archive/service_files.h"
#include "archive/service_object.h"
#include "archive_cli/entries.h"
#include "archive_cli/host_check.h"
#include "base/json.h"
#include "platform/files.h"

namespace kova::archive_cli {
namespace {

using cert_archive::Service;

bool CanBeServed(const Json::Value& object) {
  return cert_archive::IsValidServiceObject(object) &&
         cert_archive::ServiceFrom(object).StaysInItsFolder();
}

// Each element of a certificate's list of services, certificate by certificate.
void ForEachService(
    const Json::Value& info,
    const std::function<void(const std::string& id, const Json::Value& object)>& take) {
  for (const std::string& id : info.getMemberNames()) {
    const Json::Value& services = Member(info[id], "services");
    if (!services.isArray() || !cert_archive::IsPlainName(id)) continue;
    for (const Json::Value& object : services) take(id, object);
  }
}

// Reload scripts with the services that they are for.
std::map<std::string, std::vector<std::string>> ScriptsOf(const Json::Value& info) {
  std::map<std::string, std::vector<std::string>> scripts;
  ForEachService(info, [&](const std::string&, const Json::Value& object) {
    if (!CanBeServed(object)) return;
    const Service service = cert_archive::ServiceFrom(object);
    scripts[service.ReloadScript()].push_back(service.subscriber + "/" + service.name);
  });
  return scripts;
}

// A deployment runs what is there, and takes none for a service that needs no reload.
Finding LookAtScript(const std::string& script, const std::string& titles) {
  const std::string subject = "reload scripts";
  struct stat status {};
  if (stat(script.c_str(), &status) != 0) {
    return {Level::kWarning, subject, script + " does not exist, so nothing reloads " + titles,
            "put one there, unless the service notices new files by itself"};
  }
  if (!S_ISREG(status.st_mode) || access(script.c_str(), X_OK) != 0) {
    return {
        Level::kFailure, subject,
        script + " cannot be run, so that " + titles + " is not reloaded and its deployment fails",
        "chmod 755 " + script};
  }
  return {Level::kOk, subject, script + " reloads " + titles, ""};
}

Finding NotServed(const std::string& id) {
  return {Level::kFailure, "service files",
          "the list of services of " + id + " has an entry that cannot be served",
          "correct it in " + std::string(cert_archive::kIndexPath)};
}

Finding Differing(const std::string& id, const Service& service, const std::string& name) {
  return {Level::kFailure, "service files",
          service.Folder() + "/" + name + " is not the one of " + id, "kova-archive deploy " + id};
}

}  // namespace

std::vector<Finding> CheckReloadScripts() {
  const std::optional<Json::Value> info = IndexToCheck();
  if (!info) return {};
  std::vector<Finding> findings;
  for (const auto& [script, titles] : ScriptsOf(*info)) {
    findings.push_back(LookAtScript(script, Joined(titles)));
  }
  if (findings.empty()) findings.push_back({Level::kOk, "reload scripts", "none is needed", ""});
  return findings;
}

std::vector<Finding> CheckServiceFiles() {
  const std::optional<Json::Value> info = IndexToCheck();
  if (!info) return {};
  std::vector<Finding> findings;
  ForEachService(*info, [&](const std::string& id, const Json::Value& object) {
    if (!CanBeServed(object)) return findings.push_back(NotServed(id));
    const Service service = cert_archive::ServiceFrom(object);
    const std::string name = cert_archive::DifferingServiceFile(id, service);
    if (!name.empty()) findings.push_back(Differing(id, service, name));
  });
  if (!findings.empty()) return findings;
  return {{Level::kOk, "service files", "each service has the files of its certificate", ""}};
}

}  // namespace kova::archive_cli
