#!/bin/sh
# Has the viewer's window come to the front on Wayland, by the token of a launch: in sway, without a
# display of its own, beside another program in front; for Qt 6 and for Qt 5. Without a token it must
# stay behind. With --long, twenty times each.
set -eu
cd "$(dirname "$0")/.."
. scripts/setup.sh

# shellcheck disable=SC2086
require_packages $build_packages $wayland_packages python3-minimal qt6-base-dev
rounds=3
[ "${1:-}" != --long ] || rounds=20
build dev SingleInstanceViewer
build qt6 SingleInstanceViewer

# sway refuses root, and another user may not look into our folders.
home=$(mktemp -d)
as_user=
if [ "$(id -u)" -eq 0 ]; then
    as_user="setpriv --reuid=nobody --regid=nogroup --clear-groups"
    chown nobody "$home"
fi
remove_home() {
    end_started
    rm -rf "$home"
}
trap remove_home EXIT
mkdir "$home/bin"
cp scripts/wayland-token.py "$home/bin"
for qt in 5 6; do
    built=build/dev
    [ "$qt" = 5 ] || built=build/qt6
    mkdir "$home/bin/$qt"
    cp "$built/examples/viewer" "$built/HostKit/"libHostKit*.so.1 "$home/bin/$qt"
done
chmod -R a+rX "$home"
printf '%s\n' 'focus_on_window_activation focus' 'default_border none' >"$home/sway.conf"
chmod a+r "$home/sway.conf"

# exec_as_user COMMAND... : with nothing of this user's environment, in place of this shell.
exec_as_user() {
    # shellcheck disable=SC2086
    exec $as_user env -i PATH="$PATH" HOME="$home" XDG_RUNTIME_DIR="$home" LC_ALL=C.UTF-8 \
        WLR_BACKENDS=headless WLR_LIBINPUT_NO_DEVICES=1 WLR_RENDERER=pixman \
        WAYLAND_DISPLAY=wayland-1 QT_QPA_PLATFORM=wayland SINGLEINSTANCE_LOG_LEVEL=2 "$@"
}
user() {
    (exec_as_user "$@")
}

# The process of the window that has the focus.
active() {
    user SWAYSOCK="$home/sway.sock" swaymsg -t get_tree 2>/dev/null |
        python3 -c 'import json, sys
def walk(node):
    if node.get("focused") and node.get("pid"):
        print(node["pid"])
    for child in node.get("nodes", []) + node.get("floating_nodes", []):
        walk(child)
walk(json.load(sys.stdin))'
}
is_active() {
    [ "$(active)" = "$1" ]
}
has_opened() {
    [ "$(grep -c 'opened ' "$home/master.log")" -ge "$1" ]
}

# start_viewer SETTINGS LOG ARGUMENT... : in the background; its process is in VIEWER.
start_viewer() {
    settings=$1
    log=$2
    shift 2
    exec_as_user XDG_CONFIG_HOME="$home/$settings" LD_LIBRARY_PATH="$home/bin/$qt" \
        "$home/bin/$qt/viewer" "$@" 2>"$log" &
    VIEWER=$!
    started="$VIEWER $started"
}

# launch TOKEN : a second launch, with that or without.
launch() {
    user XDG_CONFIG_HOME="$home/own$qt" LD_LIBRARY_PATH="$home/bin/$qt" ${1:+XDG_ACTIVATION_TOKEN="$1"} \
        "$home/bin/$qt/viewer" "$home/sway.conf" >/dev/null 2>&1
    opened=$((opened + 1))
    until_true has_opened "$opened"
}

exec_as_user SWAYSOCK="$home/sway.sock" sway -c "$home/sway.conf" >"$home/sway.log" 2>&1 &
started="$! $started"
until_true test -S "$home/wayland-1" || { cat "$home/sway.log" >&2; exit 1; }
for qt in 5 6; do
    start_viewer "own$qt" "$home/master.log"
    master=$VIEWER
    until_true is_active "$master" || { cat "$home/master.log" >&2; exit 1; }
    opened=0
    with=0
    without=0
    for _ in $(seq "$rounds"); do
        start_viewer "other" "$home/other.log" # in front
        other=$VIEWER
        until_true is_active "$other"
        launch ""
        ! is_active "$master" || without=$((without + 1))
        launch "$(user python3 "$home/bin/wayland-token.py")"
        if until_true is_active "$master" 2>/dev/null; then with=$((with + 1)); fi
        kill "$other"
        wait "$other" 2>/dev/null || true
    done
    kill "$master"
    wait "$master" 2>/dev/null || true
    echo "Qt $qt: in front $with of $rounds times with a token, $without of $rounds without"
    [ "$with" -eq "$rounds" ] && [ "$without" -eq 0 ] || exit 1
done
