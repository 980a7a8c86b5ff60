// A terminal as standard error; outputs that cannot be written to.
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

// Puts a full disk in the place of a descriptor, so that writing to it fails.
class FullDisk {
 public:
  explicit FullDisk(int descriptor);
  ~FullDisk();
  FullDisk(const FullDisk&) = delete;
  FullDisk& operator=(const FullDisk&) = delete;

 private:
  int descriptor_;
  int kept_;
};

}  // namespace kova::test
