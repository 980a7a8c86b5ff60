// What this host can reach, and what can reach it.
#include <sys/stat.h>

#include <chrono>
#include <ctime>
#include <optional>
#include <random>
#include <string>

#include "archive_cli/host_check.h"
#include "base/settings.h"
#include "base/sl_error.h"
#include "challenge/challenge.h"
#include "net/client_network.h"
#include "platform/device.h"
#include "platform/portmap.h"

namespace kova::archive_cli {
namespace {

constexpr std::chrono::seconds kFetchTimeout{5};
constexpr char kProbeUrl[] = "http://127.0.0.1/.well-known/acme-challenge/";
constexpr char kProbeText[] = "kova-archive probe";

// A clock before this program was written, or decades after, makes every certificate invalid.
constexpr std::time_t kEarliestTime = 1767225600;  // 2026-01-01
constexpr std::time_t kLatestTime = 3345062400;    // 2076-01-01

std::string ProbeToken() {
  std::random_device random;
  return "kova-probe-" + std::to_string(random()) + std::to_string(random());
}

// What kept the probe from coming back; empty when it did.
std::string FetchFault(const std::string& token) {
  try {
    HttpClient client({.transfer_timeout = kFetchTimeout});
    const HttpResponse response = client.Get(kProbeUrl + token);
    if (response.status != 200) return "is answered with status " + std::to_string(response.status);
    if (response.body != kProbeText) return "is answered with something else";
    return {};
  } catch (const SLError&) {
    return "gets no answer from port 80";
  }
}

// The probe is a challenge like any other; it is removed when it goes out of scope.
std::string WebRootFault() {
  Http01Challenge probe;
  probe.Set("localhost", ProbeToken(), kProbeText);
  try {
    if (!probe.setup()) return "cannot be written";
  } catch (const SLError& error) {
    return "cannot be written (" + error.message + ")";
  }
  return FetchFault(probe.token);
}

bool CanUseDns01() {
  char name[1024] = {};
  return !Settings::Read().skip_dns01 &&
         (KOVADDNSGetKovaHostname(name, sizeof name) == 0 || HookDns01Challenge::IsAvailable());
}

}  // namespace

std::vector<Finding> CheckWebRoot() {
  const std::string subject = "web root";
  const std::string fault = WebRootFault();
  if (fault.empty()) {
    return {{Level::kOk, subject, "a probe below /var/lib/letsencrypt was served on port 80", ""}};
  }
  // A host whose names are proved by dns-01 can do without.
  return {{CanUseDns01() ? Level::kWarning : Level::kFailure, subject,
           "a probe below /var/lib/letsencrypt " + fault,
           "http-01 needs a web server on port 80 that serves "
           "/var/lib/letsencrypt/.well-known/acme-challenge"}};
}

std::vector<Finding> CheckRouter() {
  const std::string subject = "router";
  if (!platform::RouterUsesUpnp()) {
    return {{Level::kOk, subject, "not asked, as the device record says", ""}};
  }
  if (KLibKovaPortMapRouterDetect() == 0) {
    return {{Level::kOk, subject, "a router that forwards ports was found", ""}};
  }
  return {{Level::kWarning, subject, "none found that forwards ports on demand",
           "fine when the internet reaches port 80 of this host all the same; else switch on UPnP "
           "there, or forward the port by hand"}};
}

std::vector<Finding> CheckClock() {
  const std::time_t now = std::time(nullptr);
  char text[32] = {};
  std::tm fields{};
  gmtime_r(&now, &fields);
  (void)std::strftime(text, sizeof text, "%Y-%m-%d %H:%M UTC", &fields);
  if (now >= kEarliestTime && now < kLatestTime) return {{Level::kOk, "clock", text, ""}};
  return {{Level::kFailure, "clock", std::string(text) + " cannot be right",
           "set it, and keep it with NTP; no certificate is valid otherwise"}};
}

std::vector<Finding> CheckTrustStore() {
  const std::string subject = "trust store";
  const std::string path = TrustStorePath();
  struct stat status {};
  if (!path.empty() && stat(path.c_str(), &status) == 0 && status.st_size > 0) {
    return {{Level::kOk, subject, path, ""}};
  }
  return {{Level::kFailure, subject, path.empty() ? "none known" : path + " is missing or empty",
           "install Debian's ca-certificates; no authority can be trusted without it"}};
}

}  // namespace kova::archive_cli
