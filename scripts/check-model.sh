#!/bin/sh
# Checks docs/arbitration.pml: with the locks and the spool of a session, 2 and 3 launches never go wrong.
# The checker must find two masters without the locks, and a lost list without the spool.
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
    gcc -O2 -w -DSAFETY -DCOLLAPSE -o pan pan.c
    # shellcheck disable=SC2086
    ./pan -m1000000 $checker_options >checked
    sed -n 's/.*errors: //p; s/^max search depth too small/too deep/p' checked
}

checker_options=
for launches in 2 3; do
    found=$(errors "-DN=$launches")
    echo "$launches launches, quits, a kill, a master that cannot be reached, a slow lock: $found errors"
    [ "$found" = 0 ]
done
found=$(errors -DN=2 -DFORGETFUL)
echo "2 launches without the spool: a lost list found $found time(s)"
[ "$found" = 1 ]
for lock in WITHOUT_LOCK WITHOUT_MASTER_LOCK; do
    found=$(errors -DN=2 "-D$lock")
    echo "2 launches, $lock: two masters found $found time(s)"
    [ "$found" = 1 ]
done
checker_options=-E # masters that stay are no error here
found=$(errors -DN=2 -DBARE)
echo "2 launches without the locks: two masters found $found time(s)"
[ "$found" = 1 ]
