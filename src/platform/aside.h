// Work of a child process: questions to the C library that wait as long as they like and heed no
// signal (its look-ups of names), and texts that take a while to make. The child has no file of
// ours and does not outlive this process; what the work changes in memory is not seen afterwards.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>

#include "platform/spawn.h"
#include "platform/watch_child.h"

namespace kova::platform {

// What `question` answers. False also when that took longer than `patience`, and when the run is to
// end (platform/signals.h): then it is not waited for any longer.
[[nodiscard]] bool AskAside(const std::function<bool()>& question,
                            std::chrono::milliseconds patience);

// Whether a child would find each lock of the libraries free: of several threads another one may
// hold one at that moment, for ever as the child sees it.
[[nodiscard]] bool IsSingleThreaded();

// A text that is made while we go on. For a process with a single thread.
class TextAside {
 public:
  static constexpr size_t kLongest = 16384;  // bytes; fewer than a pipe holds

  // Starts the child. SIGCHLD stays at its default for the life of the object.
  explicit TextAside(const std::function<std::string()>& work);
  ~TextAside();  // ends a child whose text was not taken
  TextAside(const TextAside&) = delete;
  TextAside& operator=(const TextAside&) = delete;

  // Waits for what `work` returns and puts it into `text`, and into no other memory of this
  // process. False, with an empty text, when there is none: no child could be made, it failed, the
  // text is too long, or it was taken already. Throws Interruption when the run is to end.
  [[nodiscard]] bool Take(std::string& text);

 private:
  ChildSignalGuard guard_;
  Pipe pipe_;
  pid_t child_ = -1;  // -1: none, or reaped
};

}  // namespace kova::platform
