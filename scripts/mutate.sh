#!/bin/sh
# Makes the slips of tests/mutations.txt in a copy of the code, one at a time, builds it, runs the test
# that has to notice, and prints those that pass unnoticed. Takes ten minutes for all.
# usage: mutate.sh [COUNT]: so many of them, which ones depends on how many commits there are
set -eu
cd "$(dirname "$0")/.."
. scripts/setup.sh

# shellcheck disable=SC2086
require_packages $build_packages $desktop_packages $test_packages
copy=$PWD/build/mutants
rm -rf "$copy"
mkdir -p "$copy/source"
git archive HEAD | tar -xf - -C "$copy/source"
export QT_QPA_PLATFORM=offscreen LC_ALL=C.UTF-8 QTEST_DISABLE_STACK_DUMP=1

# passes TEST [FUNCTION]
passes() {
    timeout 120 scripts/with-display.sh "$copy/build/tests/$1" ${2:+"$2"} >"$copy/log" 2>&1
}

slips=$copy/slips
grep -v '^#' "$copy/source/tests/mutations.txt" >"$slips"
all=$(wc -l <"$slips")
count=${1:-$all}
first=$(($(git rev-list --count HEAD) * count % all))
cat "$slips" "$slips" | tail -n "+$((first + 1))" | head -n "$count" >"$copy/chosen"

# build_tests: those that are chosen.
build_tests() {
    # shellcheck disable=SC2046
    quietly cmake --build "$copy/build" --target \
        $(sed 's/.* | /SingleInstance_/; s/ .*//' "$copy/chosen" | sort -u)
}
quietly cmake -G Ninja -S "$copy/source" -B "$copy/build"
build_tests

# outcome FILE EXPRESSION TEST... : what comes of a slip, or nothing if it is noticed
outcome() {
    file=$1
    expression=$2
    shift 2
    cp "$copy/source/$file" "$copy/right"
    sed -E "$expression" "$copy/right" >"$copy/source/$file"
    if cmp -s "$copy/right" "$copy/source/$file"; then
        echo "changes nothing"
    elif ! cmake --build "$copy/build" --target "SingleInstance_$1" >"$copy/log" 2>&1; then
        echo "does not compile"
    elif passes "$@"; then
        echo "unnoticed"
    fi
    cp "$copy/right" "$copy/source/$file"
}

unnoticed=0
while IFS= read -r slip; do
    file=${slip%% | *}
    test=${slip##* | }
    slip=${slip% | *}
    expression=${slip#* | }
    # shellcheck disable=SC2086 # a program and a function of it
    result=$(outcome "$file" "${expression% | *}" $test)
    if [ -n "$result" ]; then
        echo "$result: ${slip##* | } ($file)"
        unnoticed=$((unnoticed + 1))
    fi
done <"$copy/chosen"
# Without any slip, all these tests pass.
build_tests
sed 's/.* | //' "$copy/chosen" | sort -u | while read -r test; do
    # shellcheck disable=SC2086
    passes $test || { echo "fails without a slip: $test"; cat "$copy/log"; exit 1; }
done
echo "$((count - unnoticed)) of $count slips were noticed"
[ "$unnoticed" -eq 0 ]
