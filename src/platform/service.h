// Users, services, the web front-end and system notifications.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

// 0 and both ids, or negative when there is no such user (error triple set).
int KOVAUserGetUGID(const std::string& name, uid_t* uid, gid_t* gid);

int KLIBServiceReload(const std::string& name);                  // 0, or -1
int KLIBServicectlIsJobRunning(const std::string& name, int);    // non-zero when running
int KOVASysNotifySendNotifiction(const char* tag, const void*);  // 0 on success

namespace kova::platform {

// The same with further words for the hook (or the log) after the tag.
int SendNotification(const std::string& tag, const std::vector<std::string>& words);

}  // namespace kova::platform

namespace kovaw3 {

// A handle on the web front-end; it holds nothing on a stock host.
class Engine {};

class Omx {
 public:
  explicit Omx(Engine& engine);
  // Restarts the web front-end. False when that failed. A host that names none has nothing to
  // restart: one syslog line, and true.
  bool RestartService();

 private:
  Engine& engine_;
};

}  // namespace kovaw3
