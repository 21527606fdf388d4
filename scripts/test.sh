#!/usr/bin/env bash
# Installs what is missing, builds, and runs the tests.
#   scripts/test.sh              the release build
#   scripts/test.sh asan         another preset: debug, asan, tsan, coverage
#   scripts/test.sh PRESET ARGS  further arguments go to ctest
set -euo pipefail
cd "$(dirname "$0")/.."
preset=${1:-release}
if [ $# -gt 0 ]; then shift; fi
scripts/bootstrap.sh --test
scripts/build.sh "$preset"
ctest --preset "$preset" -j "$(nproc)" "$@"
