// Executables in /usr/kova/libexec/platform.d that replace one built-in behaviour each.
//
// A hook counts only when it is a regular file, executable, owned by root or the effective user
// and not writable by group or others. Anything else of that name is ignored with one syslog line.
#pragma once

#include <optional>
#include <string>

#include "platform/process.h"

namespace kova::platform {

inline constexpr char kHookFolder[] = "/usr/kova/libexec/platform.d";

// Why the file at that name is not used, in words; empty when it is usable or there is none.
std::string HookFault(const std::string& name);

// Whether there is a usable one. One that is ignored is logged.
[[nodiscard]] bool HasHook(const std::string& name);

// Runs the hook. Nothing when there is no usable one; else its exit status, or a negative value
// when it could not be run or was killed. `output` (optional) receives its standard output.
std::optional<int> RunHook(const std::string& name, const KovaArgs& args,
                           std::string* output = nullptr);

}  // namespace kova::platform
