#!/bin/bash
# Shows the main job: builds the program, starts a local CA and a web server, issues a certificate
# for two names, hands it to the web server and renews it there, as root. Installs what is missing
# first. All of it happens on a private copy of this host that vanishes at the end; the machine's
# /usr/kova, /etc/cron.d and trust store are not touched.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

scripts/install-deps.sh --demo

build=build/demo
mkdir -p "$build"
build_program() {
  cmake --preset release -B "$build" -D BUILD_TESTING=OFF &&
    cmake --build "$build" &&
    DESTDIR=$PWD/$build/stage cmake --install "$build"
}
# How far it has come, since it takes minutes: on one line of a terminal, else a line for each tenth.
show_progress() {
  local line percent shown=-1
  echo "Building the program ..."
  while read -r line; do
    [[ $line =~ ^\[([0-9]+)/([0-9]+)\] ]] || continue
    percent=$((BASH_REMATCH[1] * 100 / BASH_REMATCH[2]))
    if [[ -t 1 ]]; then
      printf '\r  %d %%' "$percent"
    elif [[ $((percent / 10)) -ne $shown ]]; then
      shown=$((percent / 10))
      echo "  $percent %"
    fi
  done
  [[ ! -t 1 ]] || echo
}
build_program 2>&1 | tee "$build/build.log" | show_progress || { cat "$build/build.log" >&2; exit 1; }

exec tests/sandbox/sandbox /bin/bash scripts/demo/issue.sh "$PWD/$build/stage"
