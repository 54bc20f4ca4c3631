#!/bin/sh
# Makes the API reference from the headers: build/reference/index.html. Missing documentation is an error.
set -eu
cd "$(dirname "$0")/.."
. scripts/setup.sh
require_packages doxygen
rm -rf build/reference
mkdir -p build/reference
doxygen docs/Doxyfile
