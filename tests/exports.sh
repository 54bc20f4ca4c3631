#!/bin/sh
# Holds what a shared library exports against a list.
# usage: exports.sh LIBRARY LIST
set -eu
exported=$(mktemp)
trap 'rm -f "$exported"' EXIT
case $1 in
*.dll)
    x86_64-w64-mingw32-objdump -p "$1" |
        sed -n '/^\[Ordinal.Name Pointer\]/,/^$/s/^\t\[ *[0-9]*\] //p' | c++filt
    ;;
*)
    nm -DC --defined-only "$1" | cut -d' ' -f3-
    ;;
esac | LC_ALL=C sort -u > "$exported"
LC_ALL=C sort -u "$2" | diff -u - "$exported"
