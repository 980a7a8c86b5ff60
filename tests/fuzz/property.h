// What a fuzzed function must keep, whatever it is given.
#pragma once

#include <cstdio>
#include <cstdlib>

// Ends the process, which the fuzzer takes for a finding.
#define KOVA_REQUIRE(condition)                                                            \
  do {                                                                                     \
    if (!(condition)) {                                                                    \
      (void)std::fprintf(stderr, "%s:%d: not kept: %s\n", __FILE__, __LINE__, #condition); \
      std::abort();                                                                        \
    }                                                                                      \
  } while (false)
