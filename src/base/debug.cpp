#include "base/debug.h"

#include <syslog.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>

#include "base/progress.h"

namespace kova {
namespace {

// The command line and the settings switch every message of the process.
int debug_level = 0;      // NOLINT(*-non-const-global-variables): see above
int debug_to_syslog = 0;  // NOLINT(*-non-const-global-variables): see above

[[gnu::format(printf, 1, 0)]] void Emit(const char* format, va_list args) {
  const int saved = errno;
  if (debug_to_syslog != 0) {
    vsyslog(LOG_ERR, format, args);
    errno = saved;
    return;
  }
  HideProgress();
  (void)std::fputs("DEBUG: ", stdout);
  (void)std::vfprintf(stdout, format, args);
  (void)std::fputc('\n', stdout);
  // Whoever waits for a slow step sees it, and an abnormal end loses nothing.
  (void)std::fflush(stdout);
  errno = saved;
}

}  // namespace

int DebugLevel() { return debug_level; }
void SetDebugLevel(int level) { debug_level = level; }
bool DebugToSyslog() { return debug_to_syslog != 0; }
void SetDebugToSyslog(int flag) { debug_to_syslog = flag; }

void DebugStep(const char* format, ...) {
  if (debug_level < 1) return;
  va_list args;
  va_start(args, format);
  Emit(format, args);
  va_end(args);
}

void DebugDetail(const char* format, ...) {
  if (debug_level < 2) return;
  va_list args;
  va_start(args, format);
  Emit(format, args);
  va_end(args);
}

}  // namespace kova
