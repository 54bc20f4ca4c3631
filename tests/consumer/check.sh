#!/bin/sh
# Starts the applications that were installed below a prefix.
# usage: check.sh PREFIX shared|static
set -eu
XDG_CONFIG_HOME=$(mktemp -d)
export XDG_CONFIG_HOME
trap 'rm -rf "$XDG_CONFIG_HOME"' EXIT

"$1/bin/functions"
# One session in a process, whichever copy of the library it belongs to.
plugin=$(find "$1" -name 'libplugin.so')
said=$("$1/bin/host" "$plugin" 2>"$XDG_CONFIG_HOME/warnings")
[ "$said" = "$(printf 'state 1, in the plug-in 3\nstate 1, in the plug-in 3')" ] || { echo "$said"; exit 1; }
[ "$(grep -c 'there is one already' "$XDG_CONFIG_HOME/warnings")" = 2 ]
# A static library exports nothing of itself: no more than templates of the standard library.
if [ "$2" = static ] && nm -DC --defined-only "$plugin" "$1/bin/host" | grep -v ' std::' |
    grep 'SingleInstance\|HostKit'; then
    exit 1
fi
"$1/bin/own_host"
ours=$(ldd "$1/bin/host" | grep -c 'libHostKit\|libSingleInstance' || true)
if [ "$2" = shared ]; then expected=1; else expected=0; fi
[ "$ours" = "$expected" ] || { ldd "$1/bin/host"; exit 1; }
