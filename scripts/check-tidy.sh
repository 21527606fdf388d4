#!/usr/bin/env bash
# Runs the linter on the product's sources, or on the named files. Slow: minutes on two cores. Exits with 77 without
# clang-tidy 14.
set -euo pipefail
cd "$(dirname "$0")/.."
if ! command -v clang-tidy-14 >/dev/null; then
  echo "tidy: not checked, clang-tidy-14 is missing (Debian 12 has it; scripts/bootstrap.sh --ci installs it)" >&2
  exit 77
fi
[ -f build/release/compile_commands.json ] || cmake --preset release >/dev/null
if [ $# -gt 0 ]; then files=("$@"); else
  mapfile -t files < <(git ls-files '*.cpp' | grep -vE '^(tests|bench|fuzz)/')
fi
printf '%s\0' "${files[@]}" | xargs -0 -n 1 -P "$(nproc)" clang-tidy-14 -p build/release --quiet --warnings-as-errors='*' --extra-arg=-Wno-unknown-warning-option
