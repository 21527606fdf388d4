#!/usr/bin/env bash
# Runs the linter over the product's sources, or over the files named. Slow: minutes on two cores.
set -euo pipefail
cd "$(dirname "$0")/.."
[ -f build/release/compile_commands.json ] || cmake --preset release >/dev/null
if [ $# -gt 0 ]; then files=("$@"); else
  mapfile -t files < <(git ls-files '*.cpp' | grep -vE '^(tests|bench|fuzz)/')
fi
printf '%s\0' "${files[@]}" | xargs -0 -n 1 -P "$(nproc)" clang-tidy-14 -p build/release --quiet --warnings-as-errors='*' --extra-arg=-Wno-unknown-warning-option
