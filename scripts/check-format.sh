#!/usr/bin/env bash
# Fails if a source is not formatted as .clang-format says. Exits with 77 without clang-format 14: other versions format
# differently.
set -euo pipefail
cd "$(dirname "$0")/.."
if ! command -v clang-format-14 >/dev/null; then
  echo "format: not checked, clang-format-14 is missing (Debian 12 has it; scripts/bootstrap.sh --ci installs it)" >&2
  exit 77
fi
git ls-files -z '*.cpp' '*.h' | xargs -0 clang-format-14 --dry-run --Werror
