#!/bin/bash
# Runs clang-tidy with the tree's configuration on the sources that the last 20 commits touched, a
# touched header by a source that includes it. Prints the findings and fails when there is one.
#
# usage: tidy.sh [--list] [--thorough | SOURCE...]
#   --list      prints the names of the sources and does no more
#   --thorough  all sources below src/ (some 6 minutes on 2 cores)
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

commits=20

# The sources that show what is wrong in a touched file: itself, or for a header its own source, or
# else the first that includes it.
sources_of() {
  local own=${1%.h}.cpp
  case $1 in
    *.cpp) [[ ! -e $1 ]] || echo "$1" ;;
    *.h)
      if [[ ! -e $1 ]]; then return; fi
      if [[ -e $own ]]; then echo "$own"; return; fi
      grep -rlF --include='*.cpp' "#include \"${1#src/}\"" src | sort | head -1 ;;
  esac
}

touched() {
  git log "-$commits" --pretty= --name-only -- src | while read -r file; do
    sources_of "$file"
  done | awk '!seen[$0]++'
}

list=false
if [[ ${1:-} == --list ]]; then
  list=true
  shift
fi
case ${1:-} in
  --thorough) mapfile -t sources < <(find src -name '*.cpp' | sort) ;;
  -*) sed -n 's/^# \(usage\|  \)/\1/p' "${BASH_SOURCE[0]}" >&2; exit 2 ;;
  "")
    touched=$(touched)
    mapfile -t sources <<< "$touched" ;;
  *) sources=("$@") ;;
esac
[[ -n ${sources[*]} ]] || { echo "The last $commits commits touched no source."; exit 0; }
if $list; then
  printf '%s\n' "${sources[@]}"
  exit 0
fi

scripts/install-deps.sh
cmake --preset clang > /dev/null

# One process a source, since one process does nothing in parallel. What clang-tidy says on standard
# error is the number of findings that it suppressed, or why it could not work.
tidy_one() {
  local errors
  if ! errors=$(clang-tidy --quiet --config-file=.clang-tidy -p build/clang "$1" 2>&1 >&3); then
    printf '%s\n' "$errors" | sed '/^[0-9]* warnings\?.* generated\.$/d' >&2
    return 1
  fi
} 3>&1
export -f tidy_one
printf '%s\0' "${sources[@]}" |
  xargs -0 -n 1 -P "$(nproc)" bash -c 'tidy_one "$1" || exit 1' tidy ||
  { echo "clang-tidy has findings." >&2; exit 1; }
echo "clang-tidy is content with ${#sources[@]} sources."
