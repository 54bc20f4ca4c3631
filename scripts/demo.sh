#!/bin/sh
# Installs what is missing, builds the viewer, and shows three launches in one window.
#
# On a display the window stays open. Without a display, a private server shows it, and two pictures are
# made: before and after the last launch.
set -eu
cd "$(dirname "$0")/.."
. scripts/setup.sh

# shellcheck disable=SC2086
require_packages $build_packages
if [ -z "${DISPLAY:-}" ]; then
    # shellcheck disable=SC2086
    require_packages $desktop_packages
fi
build examples SingleInstanceViewer SingleInstanceScreenshot

binaries=$PWD/build/examples/examples
demo=$PWD/build/demo
rm -rf "$demo"
mkdir -p "$demo/documents" "$demo/elsewhere"
if [ -z "${XDG_RUNTIME_DIR:-}" ]; then
    mkdir -m 700 "$demo/runtime"
    export XDG_RUNTIME_DIR="$demo/runtime"
fi
printf 'This is the first document.\n' >"$demo/documents/first.txt"
printf 'Opened by a relative path, from another folder.\n' >"$demo/elsewhere/second.txt"
printf 'Grüße: blanks and letters of all kinds in its name.\n' >"$demo/documents/drei Grüße.txt"

# Separate from the user's own viewer, if there is one.
export XDG_CONFIG_HOME="$demo/settings" SINGLEINSTANCE_LOG_LEVEL=2

opened() {
    grep -q "opened .*$1" "$demo/master.log"
}

# is_active PROCESS : whether the active window belongs to it.
is_active() {
    window=$(xprop -root _NET_ACTIVE_WINDOW 2>/dev/null | sed 's/.* //')
    [ "$(xprop -id "$window" _NET_WM_PID 2>/dev/null | sed 's/.* //')" = "$1" ]
}

second_launch() {
    "$binaries/viewer" "$@" 2>/dev/null
}

has_display=${DISPLAY:-}
trap end_started EXIT
[ -n "$has_display" ] || start_private_display "$demo"

"$binaries/viewer" "$demo/documents/first.txt" 2>"$demo/master.log" &
master=$!
[ -n "$has_display" ] || started="$master $started"
until_true opened first.txt || { cat "$demo/master.log" >&2; exit 1; }
echo "first launch: the window is open"
echo "second launch, from another folder, with a relative path:"
(cd "$demo/elsewhere" && second_launch second.txt)
until_true opened second.txt

if [ -z "$has_display" ]; then
    XDG_CONFIG_HOME="$demo/another" "$binaries/viewer" -qwindowtitle "Another program" \
        -qwindowgeometry 600x360+300+200 2>/dev/null &
    started="$! $started"
    another=$!
    until_true is_active "$another"
    "$binaries/screenshot" "$demo/before.png"
fi

echo "third launch, with blanks and other letters in the name:"
second_launch "$demo/documents/drei Grüße.txt"
until_true opened "drei Grüße.txt"

if [ -n "$has_display" ]; then
    echo "The window on your display shows all three. It stays open."
else
    until_true is_active "$master"
    "$binaries/screenshot" "$demo/after.png"
    echo "before the third launch, another program in front: $demo/before.png"
    echo "after it, one window with three tabs:              $demo/after.png"
fi
