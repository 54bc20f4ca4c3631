# Sourced by the other scripts: installs what is missing, and says nothing when nothing is.

# require_packages PACKAGE... : installs those that are missing, through apt-get.
require_packages() {
    missing=
    for package in "$@"; do
        dpkg-query -W -f '${db:Status-Abbrev}' "$package" 2>/dev/null | grep -q '^ii' ||
            missing="$missing $package"
    done
    [ -n "$missing" ] || return 0
    echo "Installing:$missing"
    as_root=
    [ "$(id -u)" -eq 0 ] || as_root=sudo
    # One call, so that sudo asks for a password no more than once.
    # shellcheck disable=SC2086
    if ! $as_root env DEBIAN_FRONTEND=noninteractive sh -c \
        'apt-get update -q && apt-get install -qy --no-install-recommends "$@"' setup $missing \
        >"${TMPDIR:-/tmp}/singleinstance-setup.log" 2>&1; then
        tail -n 20 "${TMPDIR:-/tmp}/singleinstance-setup.log" >&2
        return 1
    fi
}

# quietly COMMAND... : shows what the command printed only if it fails.
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

build_packages='g++ cmake ninja-build pkg-config qtbase5-dev libxcb-ewmh-dev'
desktop_packages='xvfb openbox x11-utils xdotool fonts-dejavu-core'
