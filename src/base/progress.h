// Comfort for people: one line on standard error that rewrites itself, shown only when that is a
// terminal. It says which name and stage an issuance is at and how long it has waited.
#pragma once

#include <chrono>
#include <string>

namespace kova {

// Switches the line on (when it goes to a terminal) for the life of the object and wipes it at the
// end. One at a time; the command that people wait for owns it.
class ProgressLine {
 public:
  ProgressLine();
  // On another descriptor, where standard error is not the user's for now.
  explicit ProgressLine(int descriptor);
  ~ProgressLine();
  ProgressLine(const ProgressLine&) = delete;
  ProgressLine& operator=(const ProgressLine&) = delete;
};

// What is being worked on now; `name` may be empty. Without a ProgressLine nothing happens.
void ShowStage(const std::string& name, const std::string& stage);

// Wipes the line until a stage or a wait draws it again: for text that is about to be written to
// the same terminal.
void HideProgress();

// Sleeps through the platform's SleepFor and adds the time to what the line shows as waited.
void WaitVisibly(std::chrono::milliseconds duration);

}  // namespace kova
