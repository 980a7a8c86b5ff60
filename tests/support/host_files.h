// The files of the (sandboxed) host that the product reads and writes, for fixtures and assertions.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace kova::test {

inline constexpr char kSettingsFile[] = "/usr/kova/etc.defaults/letsencrypt/letsencrypt.default";
inline constexpr char kDeviceRecord[] = "/usr/kova/etc/device.json";
inline constexpr char kHooks[] = "/usr/kova/libexec/platform.d";
inline constexpr char kAccountStore[] = "/usr/kova/etc/letsencrypt/account";
inline constexpr char kArchive[] = "/usr/kova/etc/certificate/_archive";
inline constexpr char kTokenFolder[] = "/var/lib/letsencrypt/.well-known/acme-challenge";
inline constexpr char kCronJob[] = "/etc/cron.d/kova-letsencrypt";

// The state after a fresh installation: an empty archive, no settings, no accounts, no web root, no
// job, no hooks, and a device record that says nothing but that there is no router. Aborts outside
// the sandbox.
void ResetHost();

// Makes the folders above a file as needed.
void WriteFile(const std::string& path, const std::string& content, mode_t mode = 0644);
void WriteHook(const std::string& name, const std::string& script_body);

// Empty when there is no such file.
std::string ReadFile(const std::string& path);
std::vector<std::string> ReadLines(const std::string& path);

bool Exists(const std::string& path);
mode_t ModeOf(const std::string& path);                        // permission bits
std::vector<std::string> ListFolder(const std::string& path);  // names, sorted

}  // namespace kova::test
