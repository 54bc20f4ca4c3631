#!/bin/sh
# Builds the Debian packages and runs lintian. Then for each version of Qt: installs them, builds
# applications that use them, and removes them.
set -eu
cd "$(dirname "$0")/.."
. scripts/setup.sh

# shellcheck disable=SC2086
require_packages $build_packages lintian
if dpkg-query -W -f '${db:Status-Abbrev}\n' 'libsingleinstance*' 'libhostkit*' 2>/dev/null |
    grep -q '^ii'; then
    echo "The packages are installed here already; they stay as they are." >&2
    exit 1
fi

scripts/build-packages.sh
for package in build/packages/*.deb; do
    if dpkg-deb --contents "$package" | grep -v '^[d-]rwxr-xr-x\|^-rw-r--r--\|^lrwxrwxrwx'; then
        echo "$package is not open to all" >&2
        exit 1
    fi
done
# The licence and the report of the intent to package are the maintainer's.
if lintian --allow-root build/packages/*.deb |
    grep -v ': no-copyright-file$\|: initial-upload-closes-no-bugs '; then
    echo "lintian found more than what is the maintainer's" >&2
    exit 1
fi
echo "lintian finds nothing but what is the maintainer's"

packages=
remove_packages() {
    # shellcheck disable=SC2086
    quietly as_root apt-get purge -qy $packages
}

# check_packages QT PACKAGE... : all packages for a version of Qt.
check_packages() {
    qt=$1
    shift
    packages=$*
    trap remove_packages EXIT
    # shellcheck disable=SC2046
    quietly as_root apt-get install -qy --no-install-recommends \
        $(printf "./build/packages/%s_*.deb " $packages)
    dpkg -L "$@" | grep -i 'singleinstance\|hostkit' >build/packaged
    for from in package pkgconfig; do
        rm -rf "build/consumer-$from"
        quietly cmake -G Ninja -S tests/consumer -B "build/consumer-$from" "-DSOURCES=$PWD" \
            -DBUILD_SHARED_LIBS=ON "-DCONSUMER_FROM=$from" "-DCONSUMER_QT=$qt" \
            "-DCMAKE_INSTALL_PREFIX=$PWD/build/consumer-$from/installed"
        quietly cmake --build "build/consumer-$from" --target install
        tests/consumer/check.sh "build/consumer-$from/installed" shared
    done
    trap - EXIT
    remove_packages
    while read -r file; do
        [ ! -e "$file" ] || { echo "left behind: $file" >&2; exit 1; }
    done <build/packaged
    echo "Qt $qt: installed, used by find_package and pkg-config, removed without a trace"
}
check_packages 5 libhostkit1 libsingleinstance1 libsingleinstance-dev
check_packages 6 libhostkitqt6-1 libsingleinstanceqt6-1 libsingleinstance-qt6-dev
