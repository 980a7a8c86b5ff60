// The one place that writes to the system log with a source position in front.
#pragma once

#include <cstdarg>

namespace kova::platform {

// "TAG:LINE " and the formatted text as one syslog message. `%m` and errno work as in syslog(3);
// errno is unchanged on return.
[[gnu::format(printf, 4, 0)]] void SyslogLine(int priority, const char* tag, int line,
                                              const char* format, std::va_list args);

// The platform's own messages.
[[gnu::format(printf, 4, 5)]] void PlatformLog(int priority, const char* tag, int line,
                                               const char* format, ...);

}  // namespace kova::platform
