#!/usr/bin/env bash
# Configures a preset where that has not been done, and builds it, all of it or the targets named. Configures again as
# long as something was missing that the tests compare with: it may have come. Where CI is set, a warning is an error,
# also in a folder that was configured without; it stays one there.
#   scripts/build.sh PRESET [TARGET...]
set -euo pipefail
cd "$(dirname "$0")/.."
preset=${1:?usage: scripts/build.sh PRESET [TARGET...]}
shift
log=$(mktemp)
trap 'rm -f "$log"' EXIT
options=()
if [ -n "${CI:-}" ]; then options=(-DCRYPTCLI_WERROR=ON); fi
is_configured() {
  [ -f "build/$preset/build.ninja" ] && [ ! -e "build/$preset/missing-peers" ] || return 1
  [ -z "${CI:-}" ] || grep -q '^CRYPTCLI_WERROR:BOOL=ON$' "build/$preset/CMakeCache.txt" || return 1
}
if ! is_configured; then
  cmake --preset "$preset" "${options[@]}" >"$log" 2>&1 || { cat "$log" >&2; exit 1; }
fi
targets=()
if [ $# -gt 0 ]; then targets=(--target "$@"); fi
cmake --build --preset "$preset" "${targets[@]}" >"$log" 2>&1 || { tail -n 60 "$log" >&2; exit 1; }
