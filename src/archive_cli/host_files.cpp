// The files of this host that issuance and renewal rely on.
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>

#include "archive/paths.h"
#include "archive_cli/host_check.h"
#include "base/json.h"
#include "base/settings.h"
#include "platform/device.h"
#include "platform/hooks.h"

namespace kova::archive_cli {
namespace {

constexpr mode_t kModeBits = 07777;
constexpr mode_t kOthersWrite = S_IWGRP | S_IWOTH;
constexpr mode_t kOthersAny = S_IRWXG | S_IRWXO;

constexpr std::array kHookNames = {"notify",      "service-running", "service-reload",
                                   "web-restart", "router-detect",   "router-rules"};

std::optional<struct stat> Look(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) return std::nullopt;
  return status;
}

std::string ModeText(mode_t mode) {
  std::array<char, 8> text{};
  (void)std::snprintf(text.data(), text.size(), "%04o", static_cast<unsigned>(mode & kModeBits));
  return text.data();
}

enum class Content { kMissing, kUnreadable, kNotAnObject, kObject };

Content Inspect(const std::string& path) {
  Json::Value document;
  if (JsonFromFile(path, document)) {
    return document.isObject() ? Content::kObject : Content::kNotAnObject;
  }
  if (errno == ENOENT) return Content::kMissing;
  return errno == 0 ? Content::kNotAnObject : Content::kUnreadable;
}

Finding BrokenFile(const std::string& subject, const std::string& path, Content content,
                   Level level, const std::string& advice) {
  const std::string why =
      content == Content::kUnreadable ? "cannot be read" : "does not hold a JSON object";
  return {level, subject, path + " " + why, advice};
}

Finding CheckIndex() {
  const std::string subject = "archive index";
  const std::string path = cert_archive::kIndexPath;
  switch (const Content content = Inspect(path); content) {
    case Content::kObject:
      return {Level::kOk, subject, path + " can be read", ""};
    case Content::kMissing:
      return {Level::kWarning, subject, path + " does not exist",
              "nothing is renewed until `kova-archive add` has entered a certificate"};
    default:
      return BrokenFile(subject, path, content, Level::kFailure,
                        "restore it from a backup; no certificate is renewed or deployed");
  }
}

struct FolderClose {
  void operator()(DIR* folder) const noexcept { closedir(folder); }
};

std::vector<std::string> NamesIn(const char* path) {
  const std::unique_ptr<DIR, FolderClose> folder(opendir(path));
  std::vector<std::string> names;
  while (const dirent* entry = folder ? readdir(folder.get()) : nullptr) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") names.push_back(name);
  }
  std::sort(names.begin(), names.end());
  return names;
}

Finding CheckHook(const std::string& name) {
  const std::string path = std::string(platform::kHookFolder) + "/" + name;
  if (std::find(kHookNames.begin(), kHookNames.end(), name) == kHookNames.end()) {
    return {Level::kWarning, "hooks", path + " is not used",
            "no call of the program has this name"};
  }
  const std::string fault = platform::HookFault(name);
  if (fault.empty()) return {Level::kOk, "hooks", path + " is used", ""};
  return {Level::kWarning, "hooks", path + " is ignored (" + fault + ")",
          "chown root, chmod 755, no symbolic link"};
}

}  // namespace

std::optional<Json::Value> IndexToCheck() {
  Json::Value info;
  if (JsonFromFile(cert_archive::kIndexPath, info)) {
    if (info.isObject()) return info;
  } else if (errno == ENOENT) {
    return Json::Value(Json::objectValue);
  }
  return std::nullopt;
}

std::vector<Finding> CheckArchiveRoot() {
  const std::string root = cert_archive::kArchiveRoot;
  const auto status = Look(root);
  if (!status || !S_ISDIR(status->st_mode)) {
    return {
        {Level::kFailure, "archive root", root + " is not a folder", "install -d -m 700 " + root}};
  }
  std::vector<Finding> findings;
  if (status->st_uid != 0 || (status->st_mode & kOthersAny) != 0) {
    findings.push_back({Level::kFailure, "archive root",
                        root + " is open to others than root (mode " + ModeText(status->st_mode) +
                            ", owner " + std::to_string(status->st_uid) + ")",
                        "chown root " + root + " && chmod 700 " + root});
  } else if (access(root.c_str(), W_OK) != 0) {
    findings.push_back(
        {Level::kFailure, "archive root", root + " cannot be written to", std::strerror(errno)});
  } else {
    findings.push_back(
        {Level::kOk, "archive root", root + " (mode " + ModeText(status->st_mode) + ")", ""});
  }
  findings.push_back(CheckIndex());
  return findings;
}

std::vector<Finding> CheckSettingsFile() {
  const std::string subject = "settings";
  const std::string path = kSettingsPath;
  const Content content = Inspect(path);
  if (content == Content::kMissing) {
    return {{Level::kWarning, subject, path + " does not exist",
             "put the installed one back; dns-01 needs it, and most authorities its keys"}};
  }
  if (content != Content::kObject) {
    return {BrokenFile(subject, path, content, Level::kFailure,
                       "correct it; until then the defaults hold and dns-01 fails")};
  }
  const auto status = Look(path);
  if (status && (status->st_uid != 0 || (status->st_mode & kOthersWrite) != 0)) {
    return {{Level::kFailure, subject, path + " can be changed by others than root",
             "chown root " + path + " && chmod 644 " + path}};
  }
  return {{Level::kOk, subject, path + " can be read", ""}};
}

std::vector<Finding> CheckDeviceRecord() {
  const std::string subject = "device record";
  const std::string path = platform::kDeviceRecordPath;
  const Content content = Inspect(path);
  if (content == Content::kMissing) {
    return {{Level::kOk, subject, path + " does not exist, the defaults hold", ""}};
  }
  if (content != Content::kObject) {
    return {BrokenFile(subject, path, content, Level::kWarning,
                       "correct it; until then the defaults hold")};
  }
  const auto status = Look(path);
  if (status && (status->st_uid != 0 || (status->st_mode & kOthersAny) != 0)) {
    return {{Level::kWarning, subject,
             path + " is open to others than root (mode " + ModeText(status->st_mode) + ")",
             "it may hold the account's key: chown root " + path + " && chmod 600 " + path}};
  }
  return {{Level::kOk, subject, path + " can be read", ""}};
}

std::vector<Finding> CheckHooks() {
  std::vector<Finding> findings;
  for (const std::string& name : NamesIn(platform::kHookFolder)) {
    findings.push_back(CheckHook(name));
  }
  if (findings.empty()) findings.push_back({Level::kOk, "hooks", "none", ""});
  return findings;
}

}  // namespace kova::archive_cli
