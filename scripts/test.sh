#!/usr/bin/env bash
# Installs what is missing, builds, and runs the tests. What was skipped is said last.
#   scripts/test.sh              the release build
#   scripts/test.sh asan         another preset: debug, asan, tsan, coverage
#   scripts/test.sh PRESET ARGS  further arguments go to ctest
set -euo pipefail
cd "$(dirname "$0")/.."
preset=${1:-release}
if [ $# -gt 0 ]; then shift; fi
scripts/bootstrap.sh --test
scripts/build.sh "$preset"

log=$(mktemp)
trap 'rm -f "$log"' EXIT
status=0
ctest --preset "$preset" -j "$(nproc)" "$@" 2>&1 | tee "$log" || status=$?
mapfile -t skipped < <(sed -nE 's/^[[:space:]]*[0-9]+ - (.*) \(Skipped\)$/\1/p' "$log" | sed 's/\.missing$//')
if [ ${#skipped[@]} -gt 0 ]; then echo "test: skipped, since something is missing: ${skipped[*]}"; fi
exit "$status"
