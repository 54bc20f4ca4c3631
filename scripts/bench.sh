#!/bin/sh
# Builds, measures in under three minutes, prints one table, and puts it with a plot into
# docs/performance.md and docs/performance.svg.
set -eu
cd "$(dirname "$0")/.."
. scripts/setup.sh

# shellcheck disable=SC2086
require_packages $build_packages $desktop_packages libbenchmark-dev python3
quietly cmake --preset release -DSINGLEINSTANCE_BUILD_BENCHMARKS=ON
quietly cmake --build --preset release

programs=$PWD/build/release/benchmarks
results=$PWD/build/bench
rm -rf "$results"
mkdir -p -m 700 "$results"
export XDG_CONFIG_HOME="$results" XDG_RUNTIME_DIR="$results" HOME="$results" LC_ALL=C.UTF-8
unset DISPLAY WAYLAND_DISPLAY XAUTHORITY

"$programs/bench_calls" --benchmark_min_time=0.5 --benchmark_format=json >"$results/calls.json" 2>/dev/null
timeout 120 "$programs/bench_handoff" >"$results/handoff"

Xvfb -displayfd 3 -screen 0 1024x768x24 -nolisten tcp -noreset 3>"$results/display" 2>/dev/null &
started=$!
trap 'for id in $started; do kill "$id" 2>/dev/null || true; done' EXIT
for _ in $(seq 200); do
    ! grep -q '^[0-9][0-9]*$' "$results/display" || break
    sleep 0.05
done
DISPLAY=:$(cat "$results/display")
export DISPLAY
openbox >/dev/null 2>&1 &
started="$started $!"
timeout 60 "$programs/bench_handoff" desktop >>"$results/handoff"

python3 scripts/bench_report.py "$results" docs
