#!/bin/sh
# Builds the Debian packages for Qt 5 and Qt 6: build/packages/*.deb. packaging/maintainer says who
# maintains them.
set -eu
cd "$(dirname "$0")/.."
. scripts/setup.sh

# shellcheck disable=SC2086
require_packages $build_packages dpkg-dev debhelper qt6-base-dev
source=$PWD/build/packages/source
rm -rf build/packages
mkdir -p "$source"
tar -cf - --exclude=./build --exclude=./.git . | tar -xf - -C "$source"
cd "$source"
mv packaging/debian .
sed -i "s|@MAINTAINER@|$(cat packaging/maintainer)|" debian/control debian/changelog

# write_symbols LIBRARY QT : the symbols of the library, from which other packages get their dependency.
write_symbols() {
    package=$(printf 'lib%s%s1' "$1" "${2:+$2-}" | tr '[:upper:]' '[:lower:]')
    differences= # Qt 6 declares no trUtf8(), and a list of strings as what it is
    [ -z "$2" ] || differences='/trUtf8/d; s/QStringList/QList<QString>/'
    {
        echo "lib$1$2.so.1 $package #MINVER#"
        echo "* Build-Depends-Package: libsingleinstance${2:+-qt6}-dev"
        sed "$differences" "tests/exports-$1.txt" | while read -r symbol; do
            case $symbol in
            *[!A-Za-z]*) echo " (c++)\"$symbol@Base\" 1.0.0" ;;
            *) echo " $symbol@Base 1.0.0" ;;
            esac
        done
    } >"debian/$package.symbols"
}
for library in HostKit SingleInstance; do
    write_symbols "$library" ""
    write_symbols "$library" Qt6
done
umask 077 # which must not show in what is installed for all
quietly env DEB_BUILD_OPTIONS=noautodbgsym dpkg-buildpackage --build=binary --no-sign
rm -rf "$source"
