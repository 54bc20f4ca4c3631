#!/bin/sh
# Checks docs/arbitration.pml: the locks of a session hold for 2 and 3 launches, and without them the
# checker finds two masters.
set -eu
cd "$(dirname "$0")/.."
. scripts/setup.sh
require_packages spin gcc libc6-dev

model=$PWD/docs/arbitration.pml
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"

# errors DEFINITION... : prints how many errors the checker finds.
errors() {
    spin "$@" -a "$model" >/dev/null
    gcc -O2 -w -DSAFETY -o pan pan.c
    # shellcheck disable=SC2086
    ./pan -m1000000 $checker_options | sed -n 's/.*errors: //p'
}

checker_options=
for launches in 2 3; do
    found=$(errors "-DN=$launches")
    echo "$launches launches, a quit and a kill: $found errors"
    [ "$found" = 0 ]
done
checker_options=-E # masters that stay are no error here
found=$(errors -DN=2 -DBARE)
echo "2 launches without the locks: two masters found $found time(s)"
[ "$found" = 1 ]
