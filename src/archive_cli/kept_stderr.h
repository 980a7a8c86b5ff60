// What the tools and scripts that a command runs have to say.
#pragma once

#include <unistd.h>

#include <string>

#include "platform/fd.h"

namespace kova::archive_cli {

// Keeps what child programs write to standard error, so that a failure is told in one line.
class KeptStderr {
 public:
  KeptStderr();
  ~KeptStderr();  // restores standard error
  KeptStderr(const KeptStderr&) = delete;
  KeptStderr& operator=(const KeptStderr&) = delete;

  // Where standard error leads meanwhile for the user; owned by this.
  [[nodiscard]] int RealDescriptor() const { return real_ ? real_.Get() : STDERR_FILENO; }

  // Restores standard error and returns what was kept. What a program that lives on writes from
  // now on is refused, so that it cannot pile up in memory.
  std::string Release();

 private:
  platform::Fd real_;
  platform::Fd kept_;
};

// The last line of a text that holds more than blanks.
std::string LastLine(const std::string& text);

}  // namespace kova::archive_cli
