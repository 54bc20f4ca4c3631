#!/bin/sh
# Holds what a shared library exports against a list.
# usage: exports.sh LIBRARY LIST
set -eu
exported=$(mktemp)
trap 'rm -f "$exported"' EXIT
nm -DC --defined-only "$1" | cut -d' ' -f3- | LC_ALL=C sort -u > "$exported"
LC_ALL=C sort -u "$2" | diff -u - "$exported"
