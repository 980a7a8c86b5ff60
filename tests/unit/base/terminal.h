// A terminal as standard error.
#pragma once

#include <string>

namespace kova::test {

class Terminal {
 public:
  // `columns` 0: the terminal does not know its size.
  explicit Terminal(unsigned short columns = 0);
  ~Terminal();
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  // What was written to it since the last call.
  std::string Shown();

  // Gives the real standard error back.
  void End();

 private:
  int kept_;  // the real standard error
  int master_ = -1;
};

}  // namespace kova::test
