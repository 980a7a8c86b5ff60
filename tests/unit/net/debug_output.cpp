#include "debug_output.h"

#include <gtest/gtest.h>

#include "base/debug.h"

namespace kova::test {

std::string DebugOutput(int level, const std::function<void()>& action) {
  SetDebugLevel(level);
  testing::internal::CaptureStdout();
  action();
  SetDebugLevel(0);
  return testing::internal::GetCapturedStdout();
}

}  // namespace kova::test
