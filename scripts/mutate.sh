#!/bin/sh
# Makes the slips of tests/mutations.txt in a copy of the code, one at a time, builds it and runs the
# tests, and prints those that pass unnoticed. Takes a minute for each: for a machine that has time.
# usage: mutate.sh [COUNT]: so many of them, which ones depends on how many commits there are
set -eu
cd "$(dirname "$0")/.."
. scripts/setup.sh

# shellcheck disable=SC2086
require_packages $build_packages $desktop_packages $test_packages
copy=$PWD/build/mutants
rm -rf "$copy/source"
mkdir -p "$copy/source"
git archive HEAD | tar -xf - -C "$copy/source"
quietly cmake -G Ninja -S "$copy/source" -B "$copy/build" -DCMAKE_BUILD_TYPE=Debug \
    -DCMAKE_CXX_COMPILER_LAUNCHER=ccache
quietly cmake --build "$copy/build"

passes() {
    timeout 300 ctest --test-dir "$copy/build" -j2 --stop-on-failure \
        --exclude-regex 'consumer_|install_|pkgconfig_|desktop_file' >"$copy/log" 2>&1
}
passes || { cat "$copy/log" >&2; exit 1; }

slips=$copy/slips
grep -v '^#' tests/mutations.txt >"$slips"
all=$(wc -l <"$slips")
count=${1:-$all}
first=$(($(git rev-list --count HEAD) * count % all))
cat "$slips" "$slips" | tail -n "+$((first + 1))" | head -n "$count" >"$copy/chosen"

unnoticed=0
while IFS= read -r slip; do
    file=${slip%% | *}
    rest=${slip#* | }
    expression=${rest% | *}
    sed -E "$expression" "$file" >"$copy/source/$file"
    if cmp -s "$file" "$copy/source/$file"; then
        echo "changes nothing: $slip"
        unnoticed=$((unnoticed + 1))
    elif ! cmake --build "$copy/build" >"$copy/log" 2>&1; then
        echo "does not compile: $slip"
        unnoticed=$((unnoticed + 1))
    elif passes; then
        echo "unnoticed: ${slip##* | } ($file)"
        unnoticed=$((unnoticed + 1))
    fi
    cp "$file" "$copy/source/$file"
done <"$copy/chosen"
echo "$((count - unnoticed)) of $count slips were noticed"
[ "$unnoticed" -eq 0 ]
