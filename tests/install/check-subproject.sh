#!/usr/bin/env bash
# Builds a project that has this one as a folder, and runs its program. Fails when anything but the libraries comes with
# it, or when the project's own settings change.
#   check-subproject.sh SOURCE-DIR COMPILER [LAUNCHER]
set -euo pipefail
source_dir=$1
compiler=$2
launcher=${3:-}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

run() { "$@" >"$work/log" 2>&1 || { cat "$work/log" >&2; exit 1; }; }
# Relative to one folder, the compilations of all runs are the same to a compiler cache.
export CCACHE_BASEDIR=${CCACHE_BASEDIR:-$work} CCACHE_NOHASHDIR=1
run cmake -G Ninja -S "$source_dir/tests/install/subproject" -B "$work/build" -DCRYPTCLI_SOURCE_DIR="$source_dir" \
  -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_CXX_COMPILER_LAUNCHER="$launcher"
run cmake --build "$work/build"
(cd "$work" && build/consumer)

if [ "$(ctest --test-dir "$work/build" -N | sed -n 's/^Total Tests: //p')" != 0 ]; then
  echo "our tests came into the project" >&2
  exit 1
fi
# Without install rules CMake writes a script that installs nothing.
run cmake --install "$work/build" --prefix "$work/prefix"
if [ -e "$work/prefix" ]; then
  echo "installing the project installs this: $(find "$work/prefix" -type f | head -n 3)" >&2
  exit 1
fi
echo "built as a folder of another project, and run"
