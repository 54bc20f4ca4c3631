#!/bin/sh
# Starts the applications that were installed below a prefix.
# usage: check.sh PREFIX shared|static
set -eu
XDG_CONFIG_HOME=$(mktemp -d)
export XDG_CONFIG_HOME
trap 'rm -rf "$XDG_CONFIG_HOME"' EXIT

[ "$("$1/bin/application")" = "state 1" ]
"$1/bin/functions"
"$1/bin/own_host"
ours=$(ldd "$1/bin/application" | grep -c 'libHostKit\|libSingleInstance' || true)
if [ "$2" = shared ]; then expected=1; else expected=0; fi
[ "$ours" = "$expected" ] || { ldd "$1/bin/application"; exit 1; }
