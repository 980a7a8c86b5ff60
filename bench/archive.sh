#!/bin/bash
# What an archive of many certificates costs, beside a plain C loop that only reads and parses the same
# cert.pem files, in one run.
#
# usage: archive.sh [SIZE...]
#   SIZE  certificates in the archive (default 10 100 1000 10000)
set -euo pipefail

sizes=("$@")
[[ $# -gt 0 ]] || sizes=(10 100 1000 10000)
[[ " ${sizes[*]} " =~ ^(\ [1-9][0-9]*)+\ $ ]] ||
  { sed -n 's/^# \(usage\|  \)/\1/p' "${BASH_SOURCE[0]}" >&2; exit 2; }

source "$(dirname "${BASH_SOURCE[0]}")/prepare.sh"
exec "${in_sandbox[@]}" bench/archive.py "${sizes[@]}"
