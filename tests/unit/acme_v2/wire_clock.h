// What async_finalize_test.cpp adds to the steady clock of the whole program.
#pragma once

#include <chrono>

namespace kova::test {

extern std::chrono::seconds on_the_wire;

}  // namespace kova::test
