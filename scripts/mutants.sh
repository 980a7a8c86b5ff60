#!/bin/bash
# Asks whether the unit tests would notice: changes one operator or removes one statement of src/ at a
# time, builds the unit tests of its room and runs them. A mutant is killed when they fail or take too
# long, and invalid when it does not compile. Prints the survivors and a line for each room; fails when
# a room's tests kill less than 90 per cent of its valid mutants. Takes a second or two a mutant.
#
# usage: mutants.sh [--room NAME]... [--sample N [--seed N]] [--jobs N] [--json FILE]
#                   [--survivors FILE] [--list]
#   --room NAME  mutants of src/NAME; all rooms that have unit tests when none is named
#   --sample N   at most so many of a room, drawn by chance (the same ones for the same --seed)
#   --jobs N     so many at a time (1), each in a copy of the tree below build/mutants
#   --json FILE  keeps what became of each mutant; what FILE has already is not tried again
#   --survivors FILE  those alone that survived when --json wrote FILE
#   --list       prints the mutants and does no more
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

case ${1:-} in
  -h | --help) sed -n 's/^# \(usage\|  \)/\1/p' "${BASH_SOURCE[0]}"; exit 0 ;;
esac
exec nice -n 15 /usr/bin/python3 -B scripts/mutation/run.py "$@"
