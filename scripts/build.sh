#!/usr/bin/env bash
# Configures a preset where that has not been done, and builds it, all of it or the targets named.
#   scripts/build.sh PRESET [TARGET...]
set -euo pipefail
cd "$(dirname "$0")/.."
preset=${1:?usage: scripts/build.sh PRESET [TARGET...]}
shift
log=$(mktemp)
trap 'rm -f "$log"' EXIT
if [ ! -f "build/$preset/build.ninja" ]; then
  cmake --preset "$preset" >"$log" 2>&1 || { cat "$log" >&2; exit 1; }
fi
targets=()
if [ $# -gt 0 ]; then targets=(--target "$@"); fi
cmake --build --preset "$preset" "${targets[@]}" >"$log" 2>&1 || { tail -n 60 "$log" >&2; exit 1; }
