#!/bin/bash
# What one issuance costs: this program beside uacme, lego, certbot and dehydrated at the same CA (a
# local pebble that validates at once), in one run, for an account that exists already.
#
# usage: issue.sh [RUNS] [NAMES] [KEY]
#   RUNS   how often each client issues; the table has the medians (default 5)
#   NAMES  how many names the certificate has (default 1)
#   KEY    rsa2048 (default) or ec256
set -euo pipefail

runs=${1:-5} names=${2:-1} key=${3:-rsa2048}
[[ $runs =~ ^[1-9][0-9]*$ && $names =~ ^[1-9][0-9]*$ && $key =~ ^(rsa2048|ec256)$ && $# -le 3 ]] ||
  { sed -n 's/^# \(usage\|  \)/\1/p' "${BASH_SOURCE[0]}" >&2; exit 2; }

source "$(dirname "${BASH_SOURCE[0]}")/prepare.sh"
exec "${in_sandbox[@]}" bench/issue.py "$runs" "$names" "$key"
