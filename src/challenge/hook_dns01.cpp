// dns-01 for any zone: the administrator's hook places the record and takes it away.
#include "base/debug.h"
#include "base/log.h"
#include "challenge/challenge.h"
#include "crypto/encoding.h"
#include "platform/hooks.h"
#include "platform/signals.h"

namespace kova {
namespace {

constexpr char kTag[] = "challenge";
constexpr char kHook[] = "dns-txt";
constexpr char kAdd[] = "add";
constexpr char kRemove[] = "remove";

std::string RecordOf(const std::string& domain) { return "_acme-challenge." + domain; }

}  // namespace

bool HookDns01Challenge::IsAvailable() { return platform::HasHook(kHook); }

HookDns01Challenge::~HookDns01Challenge() {
  try {
    teardown();
  } catch (...) {
    // Running out of memory here must not end the process.
  }
}

bool HookDns01Challenge::setup() {
  // The name comes from the CA and goes to a script that may well paste it into something else.
  if (domain.empty() || !IsHostName(domain) || domain.find('*') != std::string::npos) return false;
  txtValue_ = Sha256Base64Url(keyAuthorization);
  DebugStep("Setup dns-txt: TXT [%s][%s]", RecordOf(domain).c_str(), txtValue_.c_str());
  isSetup_ = true;  // a hook that fails or is ended may have placed the record all the same
  const int status = Run(kAdd);
  if (status == 0) return true;
  DebugStep("Failed to setup challenge by dns-txt with [%d]", status);
  return false;
}

void HookDns01Challenge::teardown() {
  if (!isSetup_) return;
  isSetup_ = false;
  const platform::CleanupScope cleanup;
  const int status = Run(kRemove);
  if (status == 0) return;
  LogError(kTag, "The hook dns-txt failed to remove [%s][%s]. [%d]", RecordOf(domain).c_str(),
           txtValue_.c_str(), status);
}

// The hook's exit status; negative when it could not be run or was killed, or is gone.
int HookDns01Challenge::Run(const char* action) const {
  const KovaArgs args = {action, RecordOf(domain), txtValue_};
  std::string ignored;  // but collected: one that prints without end is to be ended for it
  return platform::RunHook(kHook, args, &ignored, platform::kDnsHookLimits).value_or(-1);
}

std::string HookDns01Challenge::type() { return "dns-01"; }

bool HookDns01Challenge::isSupport(const std::string& name) {
  return IsAvailable() && !IsKovaDdnsHost(name);
}

}  // namespace kova
