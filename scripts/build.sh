#!/usr/bin/env bash
# Configures a preset unless that was done before, and builds all of it or the named targets. Configures again if
# software that the tests compare with was missing: it may be installed by now. If CI is set, warnings are errors, and
# stay errors in that build folder.
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
