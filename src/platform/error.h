// What went wrong, told to callers and to the system log.
//
// The platform's error triple is errno, source file and line of the last platform call that failed
// on this thread. It is only meaningful after a failure.
#pragma once

#include <cstdarg>

int KLIBCErrGet();
const char* KLIBCErrorGetFile();  // static storage; "" before the first failure
int KLIBCErrorGetLine();

namespace kova::platform {

// For the platform's own calls: remembers the failure and leaves errno = code.
void RecordError(int code, const char* file = __builtin_FILE(), int line = __builtin_LINE());

// The one place that writes to the system log with a source position in front: "TAG:LINE " and the
// formatted text as one message. `%m` and errno work as in syslog(3); errno is unchanged on return.
[[gnu::format(printf, 4, 0)]] void SyslogLine(int priority, const char* tag, int line,
                                              const char* format, std::va_list args);

// The platform's own messages.
[[gnu::format(printf, 4, 5)]] void PlatformLog(int priority, const char* tag, int line,
                                               const char* format, ...);

}  // namespace kova::platform
