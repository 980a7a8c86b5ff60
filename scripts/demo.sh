#!/bin/bash
# Shows the main job: builds the program, starts a local CA and a web server, issues a certificate
# for two names, hands it to the web server and renews it there, as root. Installs what is missing
# first. All of it happens on a private copy of this host that vanishes at the end; the machine's
# /usr/kova, /etc/cron.d and trust store are not touched.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

scripts/install-deps.sh --demo

build=build/demo
echo "Building the program ..."
mkdir -p "$build"
build_program() {
  cmake --preset release -B "$build" -D BUILD_TESTING=OFF &&
    cmake --build "$build" &&
    DESTDIR=$PWD/$build/stage cmake --install "$build"
}
build_program > "$build/build.log" 2>&1 || { cat "$build/build.log" >&2; exit 1; }

exec tests/sandbox/sandbox /bin/bash scripts/demo/issue.sh "$PWD/$build/stage"
