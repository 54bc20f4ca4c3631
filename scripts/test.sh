#!/bin/sh
# Installs what is missing, builds, and runs every test.
set -eu
cd "$(dirname "$0")/.."
. scripts/setup.sh

# shellcheck disable=SC2086
require_packages $build_packages $desktop_packages $test_packages
build dev
ctest --preset dev
