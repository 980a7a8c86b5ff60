// Executables in /usr/kova/libexec/platform.d that replace one built-in behaviour each.
//
// A hook counts only when it is a regular file, executable, owned by root or the effective user
// and not writable by group or others. Anything else of that name is ignored with one syslog line.
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "platform/process.h"
#include "platform/watch_child.h"

namespace kova::platform {

inline constexpr char kHookFolder[] = "/usr/kova/libexec/platform.d";

// Why the file at that name is not used, in words; empty when it is usable or there is none.
std::string HookFault(const std::string& name);

// Whether there is a usable one. One that is ignored is logged.
[[nodiscard]] bool HasHook(const std::string& name);

// How long a hook may take, and how much it may write to its standard output.
inline constexpr ChildLimits kHookLimits{std::chrono::seconds(60), 64U << 10};
// The one that returns only when name servers have followed.
inline constexpr ChildLimits kDnsHookLimits{std::chrono::minutes(10), kHookLimits.output};

// Runs the hook. Nothing when there is no usable one; else its exit status, or a negative value
// when it could not be run or was killed. Past a limit it is ended with all that it started: one
// syslog line, and a negative value. `output` (optional) receives its standard output.
std::optional<int> RunHook(const std::string& name, const KovaArgs& args,
                           std::string* output = nullptr, const ChildLimits& limits = kHookLimits);

}  // namespace kova::platform
