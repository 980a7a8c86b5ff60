#!/bin/bash
# Looks with valgrind for what the programs read and write that is not theirs, or was never written:
# the unit tests' programs, and each run of the programs in the black-box tests and those before real
# neighbours. Prints what it found and fails when that is anything, or when nothing was run. Tests may
# fail on account of the time that this takes; what counts is what valgrind finds. All of it takes some
# six hours of a processor.
#
# usage: memcheck.sh [REGEX]
#   REGEX  the tests as ctest names them (default '^(unit|blackbox|realworld)\.')
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

[[ $# -le 1 && ${1:-} != -* ]] || { sed -n 's/^# \(usage\|  \)/\1/p' "${BASH_SOURCE[0]}" >&2; exit 2; }
tests=${1:-'^(unit|blackbox|realworld)\.'}

scripts/install-deps.sh
cmake --preset release > /dev/null
cmake --build --preset release

# Making a key takes ten seconds under valgrind, and is tried by the unit tests.
deal_keys() {
  export KOVA_KEYS=$PWD/build/release/tests/faults/libkova_faults_preload.so
  export KOVA_KEY_POOL=$PWD/build/memcheck-keys KOVA_KEY_COUNT=300
  mkdir -p "$KOVA_KEY_POOL"
  head --bytes=4 /dev/zero > "$KOVA_KEY_POOL/next"
  for ((number = 0; number < KOVA_KEY_COUNT; number++)); do
    [[ -s $KOVA_KEY_POOL/$number ]] || openssl genrsa -out "$KOVA_KEY_POOL/$number" 2048
  done
}

export KOVA_BOUNDS=$PWD/build/release/tests/support/libkova_valgrind_preload.so
export KOVA_MEMCHECK=$PWD/build/memcheck
rm -rf "$KOVA_MEMCHECK"
mkdir -p "$KOVA_MEMCHECK"
for program in build/release/tests/unit/*/*_test; do
  name=unit.$(basename "$program" _test)
  grep -qE "$tests" <<< "$name" || continue
  echo "$name"
  # A child need not free what its parent has, and the leak sanitizer looks for leaks at every change.
  tests/sandbox/sandbox env LD_PRELOAD="$KOVA_BOUNDS" \
    valgrind --quiet --leak-check=no --log-file="$KOVA_MEMCHECK/$name" "$program" |
    grep -E '^\[  (PASSED|FAILED)  \]' || true
done
if ctest --preset release -N --tests-regex "$tests" | grep -q 'blackbox\.'; then deal_keys; fi
# Slower by far than their limits of time expect.
ctest --preset release --tests-regex "$tests" --exclude-regex '^unit\.' --timeout 36000 || true

# This valgrind does not know all calls of today's kernels, nor how to go on after an execve that
# failed, and says so.
unknown='unhandled amd64-linux syscall|You may be able to write|README_MISSING_SYSCALL|Nevertheless we consider|valgrind.org/support|noted but unhandled ioctl|could cause spurious|EXEC FAILED|execve\(.*failed, errno|Add more stringent tests in PRE'
found=0
for report in "$KOVA_MEMCHECK"/*; do
  if [[ -e $report ]] && grep -qEv "$unknown" "$report"; then
    echo "== ${report##*/}"
    grep -Ev "$unknown" "$report" | head -60
    found=$((found + 1))
  fi
done
echo "$(find "$KOVA_MEMCHECK" -type f | wc -l) programs run under valgrind, $found with something found."
[[ $found -eq 0 && -n $(ls -A "$KOVA_MEMCHECK") ]]
