#!/bin/sh
# Runs the commands of the README as a newcomer does, in bare Debian roots with nothing but git: the
# installation with the complete program, and scripts/demo.sh. With --long also scripts/test.sh. Each runs
# in a fresh root that contains the committed tree. Needs root, and Debian's package sources.
set -eu
cd "$(dirname "$0")/.."
. scripts/setup.sh

sources=
for file in /etc/apt/sources.list.d/debian.sources /etc/apt/sources.list; do
    [ -n "$sources" ] || [ ! -s "$file" ] || sources=$file
done
if [ "$(id -u)" -ne 0 ] || [ -z "$sources" ]; then
    echo "Not checked: the README's commands on a bare machine. That takes root, and Debian's package sources."
    exit 0
fi
require_packages mmdebstrap

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
trap 'exit 1' HUP INT TERM
mkdir "$folder/app"
git archive HEAD | tar -xf - -C "$folder/app"

# block LINE : prints the code block of the README after a line
block() {
    awk -v line="$1" '
        $0 == line { on = 1; next }
        on == 1 { on = 2; next }
        on == 2 && /^```$/ { exit }
        on == 2 { print }' README.md
}
# commands LINE : prints the first commands of the README after a line
commands() {
    awk -v line="$1" '$0 == line { on = 1; next } on && /^    / { print; seen = 1; next } seen { exit }' \
        README.md
}
{
    echo 'set -eu'
    echo 'sudo() { "$@"; }' # we are root
    echo "echo 'APT::Get::Assume-Yes true;' >/etc/apt/apt.conf.d/yes" # as a person would say
    commands '## Use it'
    echo 'mkdir /root/documents && cd /root/documents && mv /root/app/main.cpp /root/app/program.txt .'
    echo 'mv program.txt CMakeLists.txt'
    commands 'Build and try it:'
    echo 'cmake --install build --prefix /root/installed'
    echo '[ "$(/root/installed/bin/documents --version)" = "Documents 1.0" ]'
    # Without a display: a master, and a launch that hands over.
    echo 'export QT_QPA_PLATFORM=offscreen XDG_RUNTIME_DIR=/root'
    echo 'timeout 60 /root/installed/bin/documents >/dev/null 2>&1 & master=$!'
    echo 'port=/root/.config/Example/Documents/SingleInstance/MasterPort'
    echo 'for _ in $(seq 100); do [ -s "$port" ] && break; sleep 0.1; done'
    echo 'timeout 20 /root/installed/bin/documents a.txt'
    echo 'kill "$master" && wait "$master"'
} >"$folder/app/use-it.sh"
block '<!-- sample: session -->' >"$folder/app/main.cpp"
block '<!-- sample: cmake -->' >"$folder/app/program.txt"

# bare FOLDER NAME COMMAND... : runs a command in a root of its own, and copies its folder build/demo out.
bare() {
    out=$folder/$1
    name=$2
    shift 2
    mkdir "$out"
    begun=$(date +%s)
    quietly mmdebstrap --quiet --variant=minbase --include=git,ca-certificates \
        --dpkgopt=force-unsafe-io \
        --customize-hook='mkdir "$1/root/app"' \
        --customize-hook="sync-in $folder/app /root/app" \
        --chrooted-customize-hook="cd /root/app && env -i HOME=/root TERM=dumb LC_ALL=C.UTF-8 \
            PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin $*" \
        --customize-hook='mkdir -p "$1/root/app/build/demo"' \
        --customize-hook="copy-out /root/app/build/demo $out" \
        bookworm /dev/null "$sources"
    echo "$name: holds on a bare machine, $(($(date +%s) - begun)) s"
}

# Both at once: each mostly waits for packages.
bare use "the README's installation and its complete program" sh use-it.sh &
installation=$!
bare demo "scripts/demo.sh" scripts/demo.sh
wait "$installation"
# A picture of an empty screen takes two kilobytes.
pictures=$folder/demo/demo
for picture in before after; do
    size=$(wc -c <"$pictures/$picture.png")
    [ "$size" -gt 5000 ] || { echo "the demo's picture $picture.png shows nothing: $size bytes" >&2; exit 1; }
done
if cmp -s "$pictures/before.png" "$pictures/after.png"; then
    echo "the demo's last launch changed nothing on the screen" >&2
    exit 1
fi
[ "${1:-}" != --long ] || bare test "scripts/test.sh" scripts/test.sh
