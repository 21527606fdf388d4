#!/usr/bin/env bash
# Runs the linter on all sources, those of tests, benchmarks and fuzz targets included, or on the named files. Slow: an hour
# on two cores. Exits with 77 without clang-tidy 14. It has a build folder of its own, configured and never built, since it
# cannot read the headers that GCC precompiles and looks at each source alone.
set -euo pipefail
cd "$(dirname "$0")/.."
if ! command -v clang-tidy-14 >/dev/null; then
  echo "tidy: not checked, clang-tidy-14 is missing (Debian 12 has it; scripts/bootstrap.sh --ci installs it)" >&2
  exit 77
fi
cmake --preset release -B build/tidy -DCRYPTCLI_PRECOMPILE=OFF -DCRYPTCLI_BATCHES=OFF >/dev/null
if [ $# -gt 0 ]; then files=("$@"); else
  mapfile -t files < <(git ls-files '*.cpp' | grep -vE '^tests/install/')
fi
printf '%s\0' "${files[@]}" | xargs -0 -n 1 -P "$(nproc)" clang-tidy-14 -p build/tidy --quiet --warnings-as-errors='*' --extra-arg=-Wno-unknown-warning-option
