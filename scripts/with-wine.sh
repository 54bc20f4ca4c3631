#!/bin/sh
# usage: with-wine.sh PROGRAM ARGUMENT...
# Runs a Qt Test program for Windows under Wine, in $WINEPREFIX, and shows its output. The output goes
# through a file: without a console, a program's messages go to a debugger.
set -eu
rm -f "$1.txt"
status=0
wine "$@" -o "$1.txt,txt" || status=$?
cat "$1.txt"
exit "$status"
