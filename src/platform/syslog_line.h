// The one place that writes to the system log with a source position in front.
#pragma once

#include <cstdarg>
#include <functional>
#include <string>

namespace kova::platform {

// "TAG:LINE " and the formatted text as one syslog message. `%m` and errno work as in syslog(3);
// errno is unchanged on return.
[[gnu::format(printf, 4, 0)]] void SyslogLine(int priority, const char* tag, int line,
                                              const char* format, std::va_list args);

// Hears every message besides the log, without its position: for programs that tell a person why
// something failed.
using SyslogListener = std::function<void(int priority, const std::string& text)>;

// Replaces the listener (at first there is none) and returns the one before.
SyslogListener SetSyslogListener(SyslogListener listener);

// The platform's own messages.
[[gnu::format(printf, 4, 5)]] void PlatformLog(int priority, const char* tag, int line,
                                               const char* format, ...);

}  // namespace kova::platform
