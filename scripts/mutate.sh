#!/bin/sh
# Makes the mutants of tests/mutations.txt in a copy of the code, one at a time. Builds each, runs the test
# that must fail, and prints the mutants that survive. All of them take ten minutes.
# usage: mutate.sh [COUNT]: only so many; which ones depends on the number of commits
set -eu
cd "$(dirname "$0")/.."
. scripts/setup.sh

# shellcheck disable=SC2086
require_packages $build_packages $desktop_packages $test_packages
copy=$PWD/build/mutation
rm -rf "$copy"
mkdir -p "$copy/source"
git archive HEAD | tar -xf - -C "$copy/source"
export QT_QPA_PLATFORM=offscreen LC_ALL=C.UTF-8 QTEST_DISABLE_STACK_DUMP=1

# passes TEST [FUNCTION]
passes() {
    timeout 120 scripts/with-display.sh "$copy/build/tests/$1" ${2:+"$2"} >"$copy/log" 2>&1
}

mutants=$copy/mutants
grep -v '^#' "$copy/source/tests/mutations.txt" >"$mutants"
all=$(wc -l <"$mutants")
count=${1:-$all}
first=$(($(git rev-list --count HEAD) * count % all))
cat "$mutants" "$mutants" | tail -n "+$((first + 1))" | head -n "$count" >"$copy/chosen"

# build_tests: the tests of the chosen mutants.
build_tests() {
    # shellcheck disable=SC2046
    quietly cmake --build "$copy/build" --target \
        $(sed 's/.* | /SingleInstance_/; s/ .*//' "$copy/chosen" | sort -u)
}
quietly cmake -G Ninja -S "$copy/source" -B "$copy/build"
build_tests

# outcome FILE EXPRESSION TEST... : prints why a mutant survives, or nothing if a check of the test failed.
# A time-out or a crashed display is no failed check.
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
        echo "survives"
    elif ! grep -q '^FAIL!' "$copy/log"; then
        echo "crashes or hangs"
    fi
    cp "$copy/right" "$copy/source/$file"
}

survivors=0
while IFS= read -r mutant; do
    file=${mutant%% | *}
    test=${mutant##* | }
    mutant=${mutant% | *}
    expression=${mutant#* | }
    # shellcheck disable=SC2086 # a program and a function of it
    result=$(outcome "$file" "${expression% | *}" $test)
    if [ -n "$result" ]; then
        echo "$result: ${mutant##* | } ($file)"
        survivors=$((survivors + 1))
    fi
done <"$copy/chosen"
# Without any mutant, all these tests pass.
build_tests
sed 's/.* | //' "$copy/chosen" | sort -u | while read -r test; do
    # shellcheck disable=SC2086
    passes $test || { echo "fails without a mutant: $test"; cat "$copy/log"; exit 1; }
done
echo "$((count - survivors)) of $count mutants were killed"
[ "$survivors" -eq 0 ]
