#!/bin/bash
# Draws the plots of docs/performance.md from what bench/issue.sh and bench/archive.sh measured last.
#
# usage: plots.sh [FOLDER]
#   FOLDER  where the PNG files go (default docs)
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

[[ $# -le 1 ]] || { sed -n 's/^# \(usage\|  \)/\1/p' "${BASH_SOURCE[0]}" >&2; exit 2; }
scripts/install-deps.sh --bench
gnuplot -e "results='build/bench/results'; folder='${1:-docs}'" bench/plots.gp
