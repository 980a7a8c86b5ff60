// Messages to the system log in the program's common form: "%s:%d " (source-file tag and line),
// then the text. Identity and facility are the system defaults; no log is opened.
#pragma once

#include <string>

namespace kova {

// Where a message or an error comes from: a source-file tag and the line that names it.
struct Site {
  // Implicit on purpose: a call such as LogError(kTag, ...) captures the caller's line.
  Site(const char* file, int at = __builtin_LINE()) : tag(file), line(at) {}  // NOLINT: see above

  const char* tag;  // static storage
  int line;
};

// LOG_ERR. `errno` is unchanged on return.
[[gnu::format(printf, 2, 3)]] void LogError(Site site, const char* format, ...);

// LOG_WARNING, for what is no failure of ours but wants a look.
[[gnu::format(printf, 2, 3)]] void LogWarning(Site site, const char* format, ...);

// LOG_DEBUG, for the few messages that are no failures.
[[gnu::format(printf, 2, 3)]] void LogDebugPriority(Site site, const char* format, ...);

// The text with a blank in the place of each control character: what comes from elsewhere must not
// break a line of the log.
std::string OnOneLine(std::string text);

// "[0xCODE FILE:LINE]" of the platform call that failed last on this thread.
std::string ErrorTriple();

}  // namespace kova
