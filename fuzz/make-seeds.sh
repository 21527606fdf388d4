#!/usr/bin/env bash
# Makes the seeds of the fuzz targets anew, out of the keys and messages in fuzz/world.
#   fuzz/make-seeds.sh               seeds alone
#   fuzz/make-seeds.sh --new-world   new keys and messages first: the finds in fuzz/corpus then lose their meaning
set -euo pipefail
cd "$(dirname "$0")/.."
if [ "${1:-}" = --new-world ]; then
  scripts/build.sh release fuzz_make_world
  rm -rf fuzz/world
  build/release/fuzz/fuzz_make_world fuzz/world
  cmake --preset release >/dev/null
fi
scripts/build.sh release fuzz_make_seeds
rm -rf fuzz/seeds
build/release/fuzz/fuzz_make_seeds fuzz/seeds
