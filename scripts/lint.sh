#!/bin/sh
# Holds what takes seconds to hold: the format of C++ and of scripts, and the spelling.
set -eu
cd "$(dirname "$0")/.."
. scripts/setup.sh

require_packages clang-format shellcheck codespell
git ls-files '*.cpp' '*.h' '*.c' | xargs clang-format --dry-run -Werror
git ls-files ':!*.png' ':!tests/corpus' | xargs codespell
git ls-files '*.sh' .ci/run | xargs shellcheck --shell=sh --external-sources --severity=warning
