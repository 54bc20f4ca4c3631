#!/bin/sh
# Builds, measures in under three minutes, prints a table, and writes it with a plot to
# docs/performance.md and docs/performance.svg. With --try, takes a few samples and changes no documents.
set -eu
cd "$(dirname "$0")/.."
. scripts/setup.sh

# shellcheck disable=SC2086
require_packages $build_packages $desktop_packages python3
preset=release
[ "${1:-}" != --try ] || preset=dev # which is built already
quietly cmake --preset "$preset" -DSINGLEINSTANCE_BUILD_BENCHMARKS=ON
quietly cmake --build --preset "$preset"

programs=$PWD/build/$preset/benchmarks
results=$PWD/build/bench
rm -rf "$results"
mkdir "$results"
chmod 700 "$results"
documents=docs
if [ "${1:-}" = --try ]; then
    documents=$results
    export BENCH_PERCENT=2
fi
export XDG_CONFIG_HOME="$results" XDG_RUNTIME_DIR="$results" HOME="$results" LC_ALL=C.UTF-8
unset DISPLAY WAYLAND_DISPLAY XAUTHORITY

# measure [desktop]
measure() {
    timeout 120 "$programs/bench_handoff" "$@" >>"$results/handoff" ||
        { echo "bench_handoff $* failed, or took more than two minutes" >&2; exit 1; }
}
measure

trap end_started EXIT
start_private_display "$results"
measure desktop

python3 scripts/bench_report.py "$results" "$documents"
