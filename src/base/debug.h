// Progress messages and the two process-wide switches that govern them.
//
// Level 1 shows the steps of a command, level 2 also transport details. A message goes to standard
// output as "DEBUG: text\n", or, when the settings ask for it, to syslog at LOG_ERR as it is. The
// private key of a new certificate and DDNS credentials appear at level 2 and 1 on purpose.
// `errno` is unchanged on return, so that a caller can report a failure first and then act on it.
#pragma once

namespace kova {

// Set by the command line (-v, -vv) and then by the settings; 0 at first: no messages.
int DebugLevel();
void SetDebugLevel(int level);

// 0, as at first: standard output. Anything else: syslog.
bool DebugToSyslog();
void SetDebugToSyslog(int flag);

[[gnu::format(printf, 1, 2)]] void DebugStep(const char* format, ...);    // level 1 and above
[[gnu::format(printf, 1, 2)]] void DebugDetail(const char* format, ...);  // level 2 and above

}  // namespace kova
