# For the other scripts: functions that install, build and start what they need.

# as_root COMMAND... : with sudo if not root.
as_root() {
    if [ "$(id -u)" -eq 0 ]; then "$@"; else sudo "$@"; fi
}

# require_packages PACKAGE... : installs the missing ones through apt-get. Is silent if none is missing.
require_packages() {
    if ! command -v apt-get >/dev/null; then
        echo "This is not Debian: install yourself what its packages have: $*"
        return 0
    fi
    missing=
    for package in "$@"; do
        dpkg-query -W -f '${db:Status-Abbrev}' "$package" 2>/dev/null | grep -q '^ii' ||
            missing="$missing $package"
    done
    [ -n "$missing" ] || return 0
    echo "Installing:$missing"
    # One call, so that sudo asks for a password once at most.
    # shellcheck disable=SC2086
    quietly as_root env DEBIAN_FRONTEND=noninteractive sh -c \
        'apt-get update -q && apt-get install -qy --no-install-recommends "$@"' setup $missing
}

# quietly COMMAND... : shows the output of the command only if it fails.
quietly() {
    output=$("$@" 2>&1) || {
        printf '%s\n' "$output" >&2
        return 1
    }
}

# build PRESET [TARGET...] : configures and builds.
build() {
    preset=$1
    shift
    quietly cmake --preset "$preset"
    quietly cmake --build --preset "$preset" ${1:+--target "$@"}
}

# until_true COMMAND... : repeats the command for up to ten seconds.
until_true() {
    for _ in $(seq 200); do
        "$@" && return 0
        sleep 0.05
    done
    echo "gave up waiting for: $*" >&2
    return 1
}

# Processes that the script started, and that end with it.
started=
end_started() {
    for process in $started; do
        kill "$process" 2>/dev/null || true
        kill -CONT "$process" 2>/dev/null || true
    done
}

# start_private_display FOLDER : starts a server and a window manager, and sets DISPLAY. The process of the
# server is DISPLAY_SERVER.
start_private_display() {
    Xvfb -displayfd 3 -screen 0 1024x640x24 -nolisten tcp -noreset 3>"$1/display" 2>/dev/null &
    DISPLAY_SERVER=$!
    export DISPLAY_SERVER
    started="$DISPLAY_SERVER $started"
    until_true grep -q '^[0-9][0-9]*$' "$1/display"
    DISPLAY=:$(cat "$1/display")
    export DISPLAY
    unset WAYLAND_DISPLAY XAUTHORITY
    env -u XDG_CONFIG_HOME HOME="$1" openbox >/dev/null 2>&1 &
    started="$! $started"
    until_true has_window_manager
}

# xprop alone succeeds even if it finds nothing.
has_window_manager() {
    xprop -root _NET_SUPPORTING_WM_CHECK | grep -q 'window id'
}

# shellcheck disable=SC2034 # for the scripts that source this
{
    build_packages='g++ cmake ninja-build pkg-config qtbase5-dev libxcb-ewmh-dev'
    desktop_packages='xvfb openbox x11-utils xdotool fonts-dejavu-core'
    wayland_packages='sway qt6-wayland python3-gi gir1.2-gtk-4.0 wtype'
    test_packages='ccache git desktop-file-utils python3-minimal iproute2
        qtdeclarative5-dev qml-module-qtquick2 qml-module-qtquick-window2'
    windows_packages='g++-mingw-w64-x86-64-posix wine wine64 xvfb dpkg-dev'
}
