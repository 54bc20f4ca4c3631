#!/bin/sh
# The checks that take seconds: the format of C++, the spelling, and the scripts.
set -eu
cd "$(dirname "$0")/.."
. scripts/setup.sh

require_packages clang-format shellcheck codespell
git ls-files '*.cpp' '*.h' '*.c' | xargs clang-format --dry-run -Werror
git ls-files ':!*.png' ':!tests/corpus' | xargs codespell
git ls-files '*.sh' .ci/run | xargs shellcheck --shell=sh --external-sources --severity=warning
