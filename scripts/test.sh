#!/bin/bash
# Builds everything and runs the whole test suite, as root. Installs what is missing first.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

scripts/install-deps.sh

run_suite() {  # PRESET CTEST-ARGUMENT...
  local preset=$1
  shift
  cmake --preset "$preset" > /dev/null
  cmake --build --preset "$preset"
  ctest --preset "$preset" --parallel 2 "$@"
}

run_suite asan --label-regex unit
run_suite release
