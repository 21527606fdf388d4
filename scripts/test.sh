#!/usr/bin/env bash
# Installs what is missing, builds, and runs the tests. The last lines list what was skipped.
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
# Single cases skip themselves if a permission or a file system is missing; each suite prints their number.
cases=$(awk '/^\[  SKIPPED \] [0-9]+ test/ {n += $4} END {print n + 0}' "build/$preset/Testing/Temporary/LastTest.log" ||
  true)
if [ "${cases:-0}" -gt 0 ]; then echo "test: single cases that could not run here: $cases (run their suite to see why)"; fi
mapfile -t skipped < <(sed -nE 's/^[[:space:]]*[0-9]+ - (.*) \(Skipped\)$/\1/p' "$log" | sed 's/\.missing$//')
if [ ${#skipped[@]} -gt 0 ]; then echo "test: skipped, since something is missing: ${skipped[*]}"; fi
exit "$status"
