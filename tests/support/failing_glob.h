// Linked into a test program (add kova_test_failing_glob to USES), this makes glob(3) fail at will.
#pragma once

namespace kova::test {

// What glob returns, after it has done its work; 0 leaves its result alone.
extern int forced_glob_result;

}  // namespace kova::test
