#include "base/log.h"

#include <syslog.h>

#include <cstdarg>

#include "platform/syslog_line.h"

namespace kova {

void LogError(Site site, const char* format, ...) {
  va_list args;
  va_start(args, format);
  platform::SyslogLine(LOG_ERR, site.tag, site.line, format, args);
  va_end(args);
}

void LogDebugPriority(Site site, const char* format, ...) {
  va_list args;
  va_start(args, format);
  platform::SyslogLine(LOG_DEBUG, site.tag, site.line, format, args);
  va_end(args);
}

}  // namespace kova
