# Sourced by the benchmarks: installs what is missing and builds the programs, as they are shipped, and
# what measures them. Sets `build` (also where the figures go, in its folder results) and `stage`.
cd "$(dirname "${BASH_SOURCE[0]}")/.."

scripts/install-deps.sh --bench

build=$PWD/build/bench
stage=$build/stage
mkdir -p "$build/results"
build_programs() {
  cmake --preset release -B "$build" -D BUILD_TESTING=OFF -D KOVA_BENCH=ON &&
    cmake --build "$build" &&
    rm -rf "$stage" && DESTDIR=$stage cmake --install "$build"
}
build_programs > "$build/build.log" 2>&1 || { cat "$build/build.log" >&2; exit 1; }
in_sandbox=(tests/sandbox/sandbox env "KOVA_BENCH_BUILD=$build" /usr/bin/python3 -B)
