#include "platform/service.h"

#include <syslog.h>

#include "platform/device.h"
#include "platform/files.h"
#include "platform/hooks.h"
#include "platform/process.h"
#include "platform/syslog_line.h"

using namespace kova::platform;

namespace {

constexpr char kTag[] = "service";
constexpr char kSystemctl[] = "/usr/bin/systemctl";
constexpr char kSystemdRuns[] = "/run/systemd/system";

}  // namespace

int KLIBServiceReload(const std::string& name) {
  const auto hook = RunHook("service-reload", {name});
  const int result =
      hook ? *hook : KLIBCExecl(kSystemctl, kKovaExecTool, {"reload-or-restart", name});
  return result == 0 ? 0 : -1;
}

int KLIBServicectlIsJobRunning(const std::string& name, int) {
  if (const auto hook = RunHook("service-running", {name})) return *hook == 0 ? 1 : 0;
  if (!KLIBCFileCheckDir(kSystemdRuns)) return 0;
  return KLIBCExec(kSystemctl, {"is-active", "--quiet", name}) == 0 ? 1 : 0;
}

int KOVASysNotifySendNotifiction(const char* tag, const void*) {
  if (const auto hook = RunHook("notify", {tag})) return *hook;
  PlatformLog(LOG_WARNING, kTag, __LINE__, "System notification [%s]", tag);
  return 0;
}

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
