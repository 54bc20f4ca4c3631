#!/bin/sh
# Checks docs/arbitration.pml: the locks and the spool of a session hold for 2 and 3 launches. Without
# the locks, or with a launch that does not wait for them, the checker finds two masters, and without
# the spool a list that is lost.
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
    echo "$launches launches, quits, a kill, a deaf master and an impatient launch: $found errors"
    [ "$found" = 0 ]
done
found=$(errors -DN=2 -DFORGETFUL)
echo "2 launches without the spool: a lost list found $found time(s)"
[ "$found" = 1 ]
found=$(errors -DN=2 -DWITHOUT_LOCK)
echo "2 launches, of which one does not wait for the lock: two masters found $found time(s)"
[ "$found" = 1 ]
checker_options=-E # masters that stay are no error here
found=$(errors -DN=2 -DBARE)
echo "2 launches without the locks: two masters found $found time(s)"
[ "$found" = 1 ]
