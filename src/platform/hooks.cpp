#include "platform/hooks.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/error.h"

namespace kova::platform {
namespace {

constexpr char kTag[] = "hooks";

std::string PathOf(const std::string& name) { return std::string(kHookFolder) + "/" + name; }

// Links are not followed. False when there is no such file or it cannot be looked at.
bool Look(const std::string& path, struct stat& status) {
  return lstat(path.c_str(), &status) == 0;
}

bool IsAbsent(int error) { return error == ENOENT || error == ENOTDIR; }

std::string Fault(const std::string& path, const struct stat& status) {
  if (!S_ISREG(status.st_mode)) return "not a regular file";
  if (status.st_uid != 0 && status.st_uid != geteuid()) return "owned by another user";
  if ((status.st_mode & (S_IWGRP | S_IWOTH)) != 0) return "writable by group or others";
  if (faccessat(AT_FDCWD, path.c_str(), X_OK, AT_EACCESS) != 0) return "not executable";
  return {};
}

void TellLimit(const std::string& path, int error, const ChildLimits& limits) {
  if (error == ETIMEDOUT) {
    const auto seconds = std::chrono::ceil<std::chrono::seconds>(limits.time).count();
    PlatformLog(LOG_ERR, kTag, __LINE__, "Ended hook [%s]: still running after %lld s",
                path.c_str(), static_cast<long long>(seconds));
  }
  if (error == EMSGSIZE) {
    PlatformLog(LOG_ERR, kTag, __LINE__, "Ended hook [%s]: more than %zu bytes of output",
                path.c_str(), limits.output);
  }
}

}  // namespace

std::string HookFault(const std::string& name) {
  const std::string path = PathOf(name);
  struct stat status {};
  if (Look(path, status)) return Fault(path, status);
  return IsAbsent(errno) ? std::string() : std::strerror(errno);
}

bool HasHook(const std::string& name) {
  const std::string path = PathOf(name);
  struct stat status {};
  if (!Look(path, status) && IsAbsent(errno)) return false;
  const std::string fault = HookFault(name);
  if (fault.empty()) return true;
  PlatformLog(LOG_ERR, kTag, __LINE__, "Ignored hook [%s]: %s", path.c_str(), fault.c_str());
  return false;
}

std::optional<int> RunHook(const std::string& name, const KovaArgs& args, std::string* output,
                           const ChildLimits& limits) {
  if (!HasHook(name)) return std::nullopt;
  const std::string path = PathOf(name);
  const int result = RunWithin(limits, path, args, output);
  if (result < 0) TellLimit(path, KLIBCErrGet(), limits);
  return result;
}

}  // namespace kova::platform
