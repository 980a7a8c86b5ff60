// The outcome of a call that does not throw: done, or what was attempted, on what, and why it
// failed. It is for telling a person; callers branch on done or not, never on the texts.
#pragma once

#include <optional>
#include <string>

namespace kova {

class [[nodiscard]] Status {
 public:
  Status() = default;  // done

  // `attempt` is what the log says without the object ("Failed to create"), `object` what it was
  // tried on, `why` the cause in words; each may be empty.
  static Status Failed(std::string attempt, std::string object = "", std::string why = "");

  // The same, caused by the platform call that failed last on this thread.
  static Status FailedCall(std::string attempt, std::string object);

  explicit operator bool() const { return !failure_.has_value(); }

  // "ATTEMPT OBJECT: WHY" without what is empty; empty when done.
  [[nodiscard]] std::string Text() const;

 private:
  struct Failure {
    std::string attempt;
    std::string object;
    std::string why;
  };
  std::optional<Failure> failure_;
};

// A system error in words; empty for 0.
std::string ErrorWords(int error);

}  // namespace kova
