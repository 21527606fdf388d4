#!/usr/bin/env bash
# Fails when a source is not formatted as .clang-format says.
set -euo pipefail
cd "$(dirname "$0")/.."
git ls-files -z '*.cpp' '*.h' | xargs -0 clang-format-14 --dry-run --Werror
