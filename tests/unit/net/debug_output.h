// What the program shows while it runs at a debug level.
#pragma once

#include <functional>
#include <string>

namespace kova::test {

// Standard output of `action` run at that debug level.
std::string DebugOutput(int level, const std::function<void()>& action);

}  // namespace kova::test
