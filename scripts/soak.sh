#!/bin/sh
# Repeats the faults of docs/reliability.md many times, and prints its table. Builds, and then takes ten
# minutes at most.
# With --try, repeats each a few times.
set -eu
cd "$(dirname "$0")/.."
. scripts/setup.sh

# shellcheck disable=SC2086
require_packages $build_packages clang libclang-rt-14-dev
build release
build asan fuzz_receiver

tests=$PWD/build/release/tests
logs=$PWD/build/soak
rm -rf "$logs"
mkdir -p "$logs/fuzz"
export QT_QPA_PLATFORM=offscreen LC_ALL=C.UTF-8 QTEST_DISABLE_STACK_DUMP=1 QTEST_FUNCTION_TIMEOUT=600000
failed=0

# row FAULT COMMAND... : runs it, a function of this script, and prints a row with what it says of itself.
row() {
    fault=$1
    shift
    if "$@" >"$logs/last" 2>&1; then
        outcome=$(sed -n 's/^QINFO *: [^ ]* //p; s/^Done \([0-9]*\) runs.*/\1 inputs, 0 findings/p' \
            "$logs/last" | sed "s/^.*: \([0-9]* rounds\)/\1/" | paste -sd '+' | sed 's/+/; /g')
    else
        outcome="FAILED, see $logs/$fault.log"
        cp "$logs/last" "$logs/$fault.log"
        failed=1
    fi
    printf '| %s | %s |\n' "$fault" "$outcome"
}

deadline=$(($(date +%s) + 600))
# in_time COMMAND... : runs it until the deadline at most.
in_time() {
    left=$((deadline - $(date +%s)))
    timeout "$((left > 0 ? left : 1))" "$@"
}

# repeat TEST FUNCTION : runs a function of a test program.
repeat() {
    in_time "$tests/$1" "$2"
}

# fuzz RUNS : runs the fuzz target twice at once.
fuzz() {
    set -- in_time build/asan/tests/fuzz_receiver "-runs=$1" -max_len=600 -timeout=10 \
        "$logs/fuzz" tests/corpus
    "$@" >"$logs/other" 2>&1 &
    other=$!
    found=0
    "$@" || found=1
    wait "$other" || found=1
    cat "$logs/other"
    return "$found"
}

printf '| fault | outcome |\n|---|---|\n'
export STORM_ROUNDS=100 QUIT_ROUNDS=500 KILL_ROUNDS=300 FLOOD_ROUNDS=10
inputs=500000
if [ "${1:-}" = --try ]; then
    export STORM_ROUNDS=2 QUIT_ROUNDS=5 KILL_ROUNDS=5 FLOOD_ROUNDS=1
    inputs=2000
fi
for launches in 2 8 32; do
    row "$launches launches at once" repeat tst_processes "launchesAtOnce:$launches"
done
row "3 launches while the master quits" repeat tst_processes quitsWithoutLosingAList
row "kill -9 at a random moment" repeat tst_processes startsAfterAKill
row "floods of 1,000 connections" repeat tst_endurance recoversFromAFlood
row "hostile bytes" fuzz "$inputs"
exit "$failed"
