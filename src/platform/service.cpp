#include "platform/service.h"

#include <syslog.h>

#include "platform/device.h"
#include "platform/error.h"
#include "platform/hooks.h"
#include "platform/process.h"
#include "platform/schedulers.h"

using namespace kova::platform;

namespace {

constexpr char kTag[] = "service";
constexpr char kSystemctl[] = "/usr/bin/systemctl";

}  // namespace

int KLIBServiceReload(const std::string& name) {
  const auto hook = RunHook("service-reload", {name});
  const int result =
      hook ? *hook : KLIBCExecl(kSystemctl, kKovaExecTool, {"reload-or-restart", name});
  return result == 0 ? 0 : -1;
}

int KLIBServicectlIsJobRunning(const std::string& name, int) {
  if (const auto hook = RunHook("service-running", {name})) return *hook == 0 ? 1 : 0;
  if (!RunsSystemd()) return 0;
  return KLIBCExec(kSystemctl, {"is-active", "--quiet", name}) == 0 ? 1 : 0;
}

int kova::platform::SendNotification(const std::string& tag,
                                     const std::vector<std::string>& words) {
  KovaArgs args = {tag};
  args.insert(args.end(), words.begin(), words.end());
  if (const auto hook = RunHook("notify", args)) return *hook;
  std::string text = "[" + tag + "]";
  for (const std::string& word : words) text += "[" + word + "]";
  PlatformLog(LOG_WARNING, kTag, __LINE__, "System notification %s", text.c_str());
  return 0;
}

int KOVASysNotifySendNotifiction(const char* tag, const void*) { return SendNotification(tag, {}); }

namespace kovaw3 {

Omx::Omx(Engine& engine) : engine_(engine) {}

bool Omx::RestartService() {
  if (const auto hook = RunHook("web-restart", {})) return *hook == 0;
  const std::string unit = WebFrontendUnit();
  if (!unit.empty()) return KLIBCExecl(kSystemctl, kKovaExecTool, {"restart", unit}) == 0;
  PlatformLog(LOG_WARNING, kTag, __LINE__,
              "Web front-end restart: no web_frontend in the device record, nothing restarted");
  return true;
}

}  // namespace kovaw3
