#!/bin/sh
# Builds the library for Windows, static and as a DLL, and runs its tests under Wine on a private display.
# The first time it also builds Qt, which takes long.
set -eu
cd "$(dirname "$0")/.."
. scripts/setup.sh

# shellcheck disable=SC2086
require_packages $build_packages $desktop_packages $windows_packages
qt=$(scripts/build-windows-qt.sh)

if git grep -nE '_WIN32|Q_OS_WIN' -- SingleInstance HostKit ':!SingleInstance/platform'; then
    echo "platforms part in SingleInstance/platform alone" >&2
    exit 1
fi

folder=$(mktemp -d)
export HOME="$folder" WINEPREFIX="$folder/wine" WINEDEBUG=-all
# Wine must not download anything, and must add nothing to the desktop's menu.
export WINEDLLOVERRIDES='mscoree,mshtml,winemenubuilder.exe='
runtime=$(dirname "$(x86_64-w64-mingw32-g++-posix -print-file-name=libstdc++-6.dll)")
export WINEPATH="$qt/bin;$runtime;/usr/x86_64-w64-mingw32/lib;$PWD/build/windows-dll/SingleInstance"
end_wine() {
    wineserver -k || true
    end_started
    rm -rf "$folder"
}
trap end_wine EXIT
trap 'exit 1' HUP INT TERM
start_private_display "$folder"
quietly wineboot --init

# check NAME TARGET TESTS OPTION... : builds a target, and runs the tests that TESTS matches.
check() {
    built=build/$1
    target=$2
    tests=$3
    shift 3
    rm -rf "$built"
    quietly cmake --preset windows -B "$built" "-DCMAKE_PREFIX_PATH=$qt" "$@"
    quietly cmake --build "$built" --target "$target"
    ctest --test-dir "$built" --tests-regex "$tests" --no-tests=error --output-on-failure
}
check windows all . -DBUILD_SHARED_LIBS=OFF
check windows-dll SingleInstance_tst_windows 'windows|exports' -DBUILD_SHARED_LIBS=ON \
    -DSINGLEINSTANCE_HOST_LIBRARIES=SingleInstance_windows_host
echo "left out on Windows: tst_limits, about the limits of Linux"
