#!/bin/sh
# Builds Qt Core, Network and Test for Windows from Debian's own source package, unless they are in the
# user's cache. Prints their folder in that cache, which all clones share.
set -eu
cd "$(dirname "$0")/.."
. scripts/setup.sh

# shellcheck disable=SC2086
require_packages $build_packages $windows_packages >&2
recipe=1 # to be raised with each change of what is built
cache=${XDG_CACHE_HOME:-$HOME/.cache}/SingleInstance
mkdir -p "$cache"
folder_of() {
    echo "$cache/windows-qt-$1-$recipe"
}
offer() {
    [ -d "$(folder_of "$1")" ] || return 1
    folder_of "$1"
    exit
}
# The version of this machine's own Qt, if the archive has its source.
version=$(dpkg-query -W -f '${source:Version}' qtbase5-dev)
offer "$version" || true

work=$(mktemp -d "$cache/building.XXXXXX")
trap 'rm -rf "$work"' EXIT
trap 'exit 1' HUP INT TERM

# The archives of this machine's packages, as archives of sources, in lists of our own.
apt() {
    command=$1
    shift
    "$command" -qq -o "Dir::Etc::SourceList=$work/sources.list" -o Dir::Etc::SourceParts=/dev/null \
        -o "Dir::State::Lists=$work/lists" -o "Dir::Cache=$work/cache" -o APT::Sandbox::User=root "$@"
}
key=/usr/share/keyrings/debian-archive-keyring.gpg
apt-get indextargets --no-release-info "Created-By: Packages" \
    --format "deb-src [signed-by=$key] \$(REPO_URI) \$(RELEASE) \$(COMPONENT)" |
    sort -u >"$work/sources.list"
mkdir -p "$work/lists/partial" "$work/cache/archives/partial"
apt apt-get update >"$work/log" 2>&1 || true # others than Debian's may have no sources, or another key
apt apt-cache showsrc qtbase-opensource-src 2>"$work/log" | sed -n 's/^Version: //p' >"$work/versions"
if ! grep -qxF "$version" "$work/versions"; then
    version=$(sort -rV "$work/versions" | head -n 1)
    [ -n "$version" ] || { cat "$work/log" >&2; echo "no archive has qtbase-opensource-src" >&2; exit 1; }
    offer "$version" || true
fi

echo "Building Qt $version for Windows, once: some seven minutes on two cores." >&2
cd "$work"
quietly apt apt-get source "qtbase-opensource-src=$version"
mv qtbase-opensource-src-*/ source
mkdir build
cd build
folder=$(folder_of "$version")
quietly ../source/configure -prefix "$folder" -opensource -confirm-license -release -shared \
    -xplatform win32-g++ -device-option CROSS_COMPILE=x86_64-w64-mingw32- \
    -no-gui -no-widgets -no-dbus -no-opengl -no-ssl -no-icu -no-feature-sql -no-feature-concurrent \
    -nomake examples -nomake tests
quietly make -j "$(nproc)"
quietly make install "INSTALL_ROOT=$work/installed"
# In one step, so that an interrupted build is never used.
mv -T "$work/installed$folder" "$folder"
echo "$folder"
