#!/bin/sh
# Builds the Debian packages, installs them, builds applications that use them, and removes them.
set -eu
cd "$(dirname "$0")/.."
. scripts/setup.sh

# shellcheck disable=SC2086
require_packages $build_packages dpkg-dev file
if dpkg-query -s libsingleinstance1 libsingleinstance-dev >/dev/null 2>&1; then
    echo "The packages are installed here already; they stay as they are." >&2
    exit 1
fi

build package
rm -rf build/packages
(
    umask 077 # which must not show in what is installed for all
    quietly cpack --config build/package/CPackConfig.cmake -B build/packages
)
for package in build/packages/*.deb; do
    echo "$package"
    if dpkg-deb --contents "$package" | grep -v '^[d-]rwxr-xr-x\|^-rw-r--r--\|^lrwxrwxrwx'; then
        echo "not open to all" >&2
        exit 1
    fi
done
quietly as_root apt-get install -qy --no-install-recommends ./build/packages/*.deb
remove_packages() {
    quietly as_root apt-get purge -qy libsingleinstance-dev libsingleinstance1
}
trap remove_packages EXIT
dpkg -L libsingleinstance-dev libsingleinstance1 | grep -i 'singleinstance\|hostkit' >build/packages/files

for from in package pkgconfig; do
    rm -rf "build/consumer-$from"
    quietly cmake -G Ninja -S tests/consumer -B "build/consumer-$from" \
        -DCONSUMER_FROM=$from -DSINGLEINSTANCE_QT=5
    quietly cmake --build "build/consumer-$from"
    quietly ctest --test-dir "build/consumer-$from" --output-on-failure --no-tests=error
done
echo "installed, and used by find_package and pkg-config"

trap - EXIT
remove_packages
while read -r file; do
    [ ! -e "$file" ] || { echo "left behind: $file" >&2; exit 1; }
done <build/packages/files
echo "removed, and nothing left"
