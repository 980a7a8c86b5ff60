#!/bin/bash
# Builds everything and runs the whole test suite, as root: the unit tests also under the address and
# undefined-behaviour sanitizers. Installs what is missing first. Ends with one line,
# "N passed, N failed", which counts single test cases.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

scripts/install-deps.sh

results=()
run_suite() {  # PRESET CTEST-ARGUMENT...
  local preset=$1
  shift
  cmake --preset "$preset" > /dev/null
  cmake --build --preset "$preset"
  local result=$PWD/build/$preset/results.xml
  rm -f "$result"
  # A failed test fails the script at its end, when all of them have run.
  ctest --preset "$preset" --parallel 2 --output-junit "$result" --test-output-size-passed 4096 \
    --test-output-size-failed 100000 --test-output-truncation head "$@" || true
  results+=("$preset=$result")
}

run_suite release
run_suite asan --label-regex unit

/usr/bin/python3 -B scripts/count_results.py "${results[@]}"
