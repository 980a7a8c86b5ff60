#include "failing_glob.h"

#include <glob.h>

namespace kova::test {

int forced_glob_result = 0;

}  // namespace kova::test

// The linker's names for the real function and its replacement.
extern "C" {
int __real_glob(const char* pattern, int flags, int (*on_error)(const char*, int), glob_t* found);

int __wrap_glob(const char* pattern, int flags, int (*on_error)(const char*, int), glob_t* found) {
  const int result = __real_glob(pattern, flags, on_error, found);
  return kova::test::forced_glob_result == 0 ? result : kova::test::forced_glob_result;
}
}
