#!/bin/sh
# Repeats the faults of docs/reliability.md many times and prints its table. Then checks that the tests
# kill mutants of the code. Takes half an hour, after the build; an hour at most on a slow machine.
# With --try, repeats each fault a few times, and makes no mutants.
set -eu
cd "$(dirname "$0")/.."
. scripts/setup.sh

# shellcheck disable=SC2086
require_packages $build_packages $desktop_packages $test_packages clang libclang-rt-14-dev
kind=release
[ "${1:-}" != --try ] || kind=dev # which is built already
build "$kind"
build asan SingleInstance_fuzz_receiver

tests=$PWD/build/$kind/tests
logs=$PWD/build/soak
rm -rf "$logs"
mkdir -p "$logs/fuzz"
export QT_QPA_PLATFORM=offscreen LC_ALL=C.UTF-8 QTEST_DISABLE_STACK_DUMP=1 QTEST_FUNCTION_TIMEOUT=1200000
failed=0

# rows FUNCTION ARGUMENT... : runs a function of this script, and prints a row for each fault.
rows() {
    if ! "$@" >"$logs/last" 2>&1; then
        mv "$logs/last" "$logs/$*.log"
        printf '| %s | FAILED, see %s |\n' "$*" "$logs/$*.log"
        failed=1
    else
        sed -n 's/^QINFO *: [^:]*::[^:]*) \([^:]*: [0-9]* rounds\)/\1/p
            s/^Done \([0-9]*\) runs.*/hostile bytes, in each of two runs: \1 inputs, 0 findings/p' "$logs/last" |
            sed 's/^\(.*\): \(.*\)$/| \1 | \2 |/'
    fi
}

deadline=$(($(date +%s) + 2700))
# in_time COMMAND... : runs a command until the deadline at most.
in_time() {
    left=$((deadline - $(date +%s)))
    timeout -k 10 "$((left > 0 ? left : 1))" "$@"
}

# repeat TEST FUNCTION... : runs functions of a test program.
repeat() {
    program=$1
    shift
    in_time "$tests/$program" "$@"
}

# repeat_on_display TEST FUNCTION... : the same with a window manager.
repeat_on_display() {
    program=$1
    shift
    in_time scripts/with-display.sh "$tests/$program" "$@"
}

# repeat_in_own_network TEST FUNCTION... : the same in a network that it may change.
repeat_in_own_network() {
    program=$1
    shift
    namespaces=--net
    [ "$(id -u)" -eq 0 ] || namespaces="--net --map-root-user"
    # shellcheck disable=SC2016,SC2086
    OWN_NETWORK=1 in_time unshare $namespaces sh -c 'ip link set lo up && exec "$0" "$@"' \
        "$tests/$program" "$@"
}

# fuzz RUNS : runs the fuzz target twice at once.
fuzz() {
    set -- in_time build/asan/tests/fuzz_receiver "-runs=$1" -max_len=600 -timeout=10 \
        "$logs/fuzz" tests/corpus
    "$@" >"$logs/other" 2>&1 &
    other=$!
    found=0
    "$@" || found=1
    wait "$other" || { found=1; cat "$logs/other"; }
    return "$found"
}

printf '| fault | outcome |\n|---|---|\n'
export STORM_ROUNDS=100 KILL_ROUNDS=300 UNREACHABLE_ROUNDS=10 FLOOD_ROUNDS=10 WAIT_ROUNDS=200
inputs=200000
if [ "${1:-}" = --try ]; then
    export STORM_ROUNDS=2 KILL_ROUNDS=5 UNREACHABLE_ROUNDS=1 FLOOD_ROUNDS=1 WAIT_ROUNDS=4
    inputs=2000
fi
rows repeat_on_display tst_sessions servesEachLaunch startsAfterAKill endsEachWait
rows repeat_in_own_network tst_sessions takesThePlaceOfAMasterThatCannotBeReached
rows repeat tst_limits recoversFromAFlood
rows fuzz "$inputs"
unset STORM_ROUNDS KILL_ROUNDS UNREACHABLE_ROUNDS FLOOD_ROUNDS WAIT_ROUNDS # a mutant is killed in a single one
[ "${1:-}" = --try ] || scripts/mutate.sh || failed=1
exit "$failed"
