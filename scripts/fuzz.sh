#!/bin/bash
# Builds the fuzzers and runs each of them for some seconds (60), inside the sandbox. What they find
# is kept in build/fuzz/findings, what they learn in build/fuzz/corpus.
#
# usage: fuzz.sh [SECONDS]
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

seconds=${1:-60}
[[ $seconds =~ ^[1-9][0-9]*$ ]] || { sed -n 's/^# \(usage\)/\1/p' "${BASH_SOURCE[0]}" >&2; exit 2; }

scripts/install-deps.sh
cmake --preset fuzz -D KOVA_FUZZ_SECONDS="$seconds" > /dev/null
cmake --build --preset fuzz --target fuzzers
exec ctest --preset fuzz --parallel 2
