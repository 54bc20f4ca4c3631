#!/bin/sh
# Checks on Wayland that launches bring the viewer's window to the front by their activation tokens: in
# sway, without a display, with Qt 6. A launcher's window is in front before each. Launches without a
# token must leave the window behind. With --long, twenty rounds.
set -eu
cd "$(dirname "$0")/.."
. scripts/setup.sh

# shellcheck disable=SC2086
require_packages $build_packages $wayland_packages qt6-base-dev
rounds=3
[ "${1:-}" != --long ] || rounds=20
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
cp scripts/wayland-launcher.py build/qt6/examples/viewer build/qt6/HostKit/libHostKit*.so.1 "$home"
printf '%s\n' 'focus_on_window_activation focus' 'default_border none' >"$home/sway.conf"
mkfifo "$home/ask"
chmod -R a+rX "$home"

# exec_as_user COMMAND... : with nothing of this user's environment, in place of this shell.
exec_as_user() {
    # shellcheck disable=SC2086
    exec $as_user env -i PATH=/usr/bin:/bin HOME="$home" XDG_RUNTIME_DIR="$home" LC_ALL=C.UTF-8 \
        WLR_BACKENDS=headless WLR_LIBINPUT_NO_DEVICES=1 WLR_RENDERER=pixman SWAYSOCK="$home/sway.sock" \
        WAYLAND_DISPLAY=wayland-1 QT_QPA_PLATFORM=wayland GSK_RENDERER=cairo SINGLEINSTANCE_LOG_LEVEL=2 \
        LD_LIBRARY_PATH="$home" "$@"
}
user() {
    (exec_as_user "$@")
}

# is_active PROCESS : whether one of its windows has the focus.
is_active() {
    user swaymsg -t get_tree 2>/dev/null | python3 -c 'import json, sys
def focused(node):
    below = node.get("nodes", []) + node.get("floating_nodes", [])
    return node.get("focused") and node.get("pid") == int(sys.argv[1]) or any(map(focused, below))
sys.exit(not focused(json.load(sys.stdin)))' "$1"
}

# ask COUNT : prints so many tokens, one a line. The launcher must have the focus.
ask() {
    before=$(wc -l <"$home/tokens")
    seq "$1" >&3
    until_true has_lines "$home/tokens" $((before + $1))
    tail -n "$1" "$home/tokens"
}
has_lines() {
    [ "$(wc -l <"$1")" -ge "$2" ]
}
has_opened() {
    [ "$(grep -c 'opened ' "$home/master.log")" -ge "$1" ]
}

# launch TOKEN... : launches at once, each with a token, or none if that is "-".
launch() {
    processes=
    for token in "$@"; do
        [ "$token" != - ] || token=
        exec_as_user ${token:+XDG_ACTIVATION_TOKEN="$token"} "$home/viewer" "$home/sway.conf" \
            >/dev/null 2>&1 &
        processes="$processes $!"
        opened=$((opened + 1))
    done
    # shellcheck disable=SC2086
    wait $processes
}

# check NAME COUNT : launches at once come to the front.
check() {
    name=$1
    front=0
    for _ in $(seq "$rounds"); do
        user swaymsg '[title=launcher] focus' >/dev/null
        until_true is_active "$launcher"
        if [ "$2" = 0 ]; then
            launch -
            until_true has_opened "$opened"
            ! is_active "$master" || front=$((front + 1))
            continue
        fi
        tokens=$(ask "$2")
        if [ "$name" = reversed ]; then
            kill -STOP "$master"
            for token in $(printf '%s\n' "$tokens" | tac); do launch "$token"; done
            kill -CONT "$master"
        else
            # shellcheck disable=SC2086
            launch $tokens
        fi
        until_true has_opened "$opened"
        if until_true is_active "$master" 2>/dev/null; then front=$((front + 1)); fi
    done
    echo "$name: in front $front of $rounds times"
}

exec_as_user sway -c "$home/sway.conf" >"$home/sway.log" 2>&1 &
started="$! $started"
until_true test -S "$home/wayland-1" || { cat "$home/sway.log" >&2; exit 1; }
# A keyboard that stays: one that goes after each key would be gone before a program listens to it.
exec_as_user wtype -s 3600000 &
started="$! $started"
exec_as_user python3 "$home/wayland-launcher.py" <"$home/ask" >"$home/tokens" 2>"$home/launcher.log" &
launcher=$!
started="$launcher $started"
exec 3>"$home/ask"
until_true is_active "$launcher" || { cat "$home/launcher.log" >&2; exit 1; }
exec_as_user "$home/viewer" 2>"$home/master.log" &
master=$!
started="$master $started"
until_true is_active "$master" || { cat "$home/master.log" >&2; exit 1; }
opened=0
{
    check "without a token" 0
    check "one launch" 1
    check "two launches at once" 2
    check "five launches at once" 5
    check reversed 2
} | tee "$home/results"
[ "$(grep -c "front $rounds of $rounds" "$home/results")" = 4 ] &&
    grep -q "without a token: in front 0 of" "$home/results"
