#include "base/log.h"

#include <syslog.h>

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>

#include "platform/error.h"

namespace kova {

void LogError(Site site, const char* format, ...) {
  va_list args;
  va_start(args, format);
  platform::SyslogLine(LOG_ERR, site.tag, site.line, format, args);
  va_end(args);
}

void LogWarning(Site site, const char* format, ...) {
  va_list args;
  va_start(args, format);
  platform::SyslogLine(LOG_WARNING, site.tag, site.line, format, args);
  va_end(args);
}

void LogDebugPriority(Site site, const char* format, ...) {
  va_list args;
  va_start(args, format);
  platform::SyslogLine(LOG_DEBUG, site.tag, site.line, format, args);
  va_end(args);
}

std::string OnOneLine(std::string text) {
  const auto is_control = [](unsigned char c) { return c < ' ' || c == 0x7f; };
  std::replace_if(text.begin(), text.end(), is_control, ' ');
  return text;
}

std::string ErrorTriple() {
  std::array<char, 512> text{};
  (void)std::snprintf(text.data(), text.size(), "[0x%04X %s:%d]",
                      static_cast<unsigned>(KLIBCErrGet()), KLIBCErrorGetFile(),
                      KLIBCErrorGetLine());
  return text.data();
}

}  // namespace kova
