#!/bin/sh
# usage: with-wine.sh PROGRAM ARGUMENT...
# Runs a Qt Test program for Windows under Wine, in $WINEPREFIX, and shows what it said. That goes
# through a file, since without a console it would go to a debugger.
set -eu
rm -f "$1.txt"
status=0
wine "$@" -o "$1.txt,txt" || status=$?
cat "$1.txt"
exit "$status"
