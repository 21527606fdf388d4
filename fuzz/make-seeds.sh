#!/usr/bin/env bash
# Makes the seeds of the fuzz targets again, from the keys and messages in fuzz/world.
#   fuzz/make-seeds.sh           seeds alone
#   fuzz/make-seeds.sh --world   first the keys and messages that are missing in fuzz/world. With other keys or other
#                                samples the inputs in fuzz/corpus become worthless.
set -euo pipefail
cd "$(dirname "$0")/.."
if [ "${1:-}" = --world ]; then
  scripts/build.sh release fuzz_make_world
  build/release/fuzz/fuzz_make_world fuzz/world
  cmake --preset release >/dev/null
fi
scripts/build.sh release fuzz_make_seeds
rm -rf fuzz/seeds
build/release/fuzz/fuzz_make_seeds fuzz/seeds
