#!/usr/bin/env bash
# Makes the seeds of the fuzz targets anew, out of the keys and messages in fuzz/world.
#   fuzz/make-seeds.sh           seeds alone
#   fuzz/make-seeds.sh --world   first the keys and messages that fuzz/world lacks. With other keys or other samples the
#                                finds in fuzz/corpus lose their meaning.
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
