#!/bin/bash
# The inner loops under Google Benchmark, each over growing input, with the complexity that fits.
#
# usage: loops.sh [--short | BENCHMARK-OPTION...]
#   --short  each once, only to see that it works
set -euo pipefail

options=("$@")
[[ ${1:-} != --short ]] || options=(--benchmark_min_time=0)

source "$(dirname "${BASH_SOURCE[0]}")/prepare.sh"
exec tests/sandbox/sandbox "$build/bench/loops" "${options[@]}"
