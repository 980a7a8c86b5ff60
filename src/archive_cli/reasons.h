// Why a call of the archive failed. The archive tells the system log; a person at the keyboard is
// to hear it as well.
#pragma once

#include <string>

#include "platform/fd.h"
#include "platform/syslog_line.h"

namespace kova::archive_cli {

// Remembers, for the life of the object, the first error that is logged.
class Reasons {
 public:
  Reasons();
  ~Reasons();
  Reasons(const Reasons&) = delete;
  Reasons& operator=(const Reasons&) = delete;

  // In words; "see the system log" when nothing was heard.
  [[nodiscard]] std::string First() const;
  [[nodiscard]] bool Any() const { return !first_.empty(); }

 private:
  std::string first_;
  platform::SyslogListener previous_;
};

// Keeps what child programs write to standard error, so that a failure is told in one line.
class KeptStderr {
 public:
  KeptStderr();
  ~KeptStderr();  // restores standard error
  KeptStderr(const KeptStderr&) = delete;
  KeptStderr& operator=(const KeptStderr&) = delete;

  // Restores standard error and returns what was kept. What a program that lives on writes from
  // now on is refused, so that it cannot pile up in memory.
  std::string Release();

 private:
  platform::Fd real_;
  platform::Fd kept_;
};

// The last line of a text that holds more than blanks.
std::string LastLine(const std::string& text);

// A log message for people: the platform's error triple, "[0x0002 files.cpp:57]", in words.
std::string InWords(const std::string& message);

}  // namespace kova::archive_cli
