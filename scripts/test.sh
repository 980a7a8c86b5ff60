#!/bin/bash
# Builds everything and runs the whole test suite, as root: the unit tests, and most hostile servers of
# the black-box tests, also under the address and undefined-behaviour sanitizers. Installs what is
# missing first. Ends with one line, "N passed, N failed", which counts single test cases.
#
# usage: test.sh [--thorough]
#   --thorough  all of the suite under the sanitizers too
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

sanitized='^unit\.|^blackbox\.(hostile_(ca|members|transfers)|v1_hostile_members|secrets|kova_archive_safety)'
case ${1:-} in
  --thorough) sanitized='^(unit|blackbox|realworld)\.' ;;
  "") ;;
  *) sed -n 's/^# \(usage\|  \)/\1/p' "${BASH_SOURCE[0]}" >&2; exit 2 ;;
esac

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
  ctest --preset "$preset" --parallel 3 --output-junit "$result" --test-output-size-passed 4096 \
    --test-output-size-failed 100000 --test-output-truncation head "$@" || true
  results+=("$preset=$result")
}

run_suite release
run_suite asan --tests-regex "$sanitized"

/usr/bin/python3 -B scripts/count_results.py "${results[@]}"
