#include <syslog.h>

#include <cerrno>
#include <cstdio>
#include <string>

#include "platform/error.h"

namespace kova::platform {

void SyslogLine(int priority, const char* tag, int line, const char* format, std::va_list args) {
  const int saved = errno;
  std::va_list measure;
  va_copy(measure, args);
  const int length = std::vsnprintf(nullptr, 0, format, measure);
  va_end(measure);
  std::string text(length > 0 ? static_cast<size_t>(length) : 0, '\0');
  errno = saved;
  if (length > 0) (void)std::vsnprintf(text.data(), text.size() + 1, format, args);
  syslog(priority, "%s:%d %s", tag, line, text.c_str());
  errno = saved;
}

void PlatformLog(int priority, const char* tag, int line, const char* format, ...) {
  std::va_list args;
  va_start(args, format);
  SyslogLine(priority, tag, line, format, args);
  va_end(args);
}

}  // namespace kova::platform
