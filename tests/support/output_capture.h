// Keeps what the product writes to standard output while the object lives.
#pragma once

#include <string>
#include <vector>

namespace kova::test {

class OutputCapture {
 public:
  // Sets the debug level for the life of the object; 0 leaves only results to be seen.
  explicit OutputCapture(int debug_level = 0);
  ~OutputCapture();
  OutputCapture(const OutputCapture&) = delete;
  OutputCapture& operator=(const OutputCapture&) = delete;

  // Everything so far.
  std::string Text();
  std::vector<std::string> Lines();

  // The debug lines so far without their "DEBUG: "; other lines are left out.
  std::vector<std::string> Debug();

 private:
  int kept_;      // the real standard output
  int captured_;  // a file without a name
};

}  // namespace kova::test
