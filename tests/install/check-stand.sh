#!/usr/bin/env bash
# Installs a build into an empty prefix, moves that, and runs the tests of third parties against it: with GoogleTest, with
# pytest and as a shell script.
#   check-stand.sh SOURCE-DIR BUILD-DIR
set -euo pipefail
source_dir=$1
build_dir=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
run() { "$@" >"$work/log" 2>&1 || { cat "$work/log" >&2; exit 1; }; }
run cmake --install "$build_dir" --prefix "$work/first"
mv "$work/first" "$work/prefix"
prefix=$work/prefix
mkdir "$work/tmp"
export TMPDIR=$work/tmp

run cmake -G Ninja -S "$source_dir/tests/install/stand_consumer" -B "$work/consumer" -DCMAKE_PREFIX_PATH="$prefix"
run cmake --build "$work/consumer"
run "$work/consumer/upload_test"

for component in no-such stand; do
  if [ "$component" = stand ]; then rm "$(find "$prefix" -name cryptcli-stand-targets.cmake)"; fi
  cat >"$work/CMakeLists.txt" <<END
cmake_minimum_required(VERSION 3.25)
project(missing NONE)
find_package(cryptcli QUIET COMPONENTS $component)
if(cryptcli_FOUND)
  message(FATAL_ERROR "the component $component is found")
endif()
END
  run cmake -G Ninja -S "$work" -B "$work/missing" -DCMAKE_PREFIX_PATH="$prefix"
done

for shell in dash bash; do
  run env PATH="$prefix/bin:$PATH" "$shell" "$source_dir/tests/install/stand_consumer/upload-test.sh" "$prefix"
done

# As users have them in their search paths.
libdir=$(dirname "$(find "$prefix" -name libcryptcli.so)")
run env PATH="$prefix/bin:$PATH" LD_LIBRARY_PATH="$libdir" PYTHONPATH="$prefix/lib/python3/dist-packages" \
  PYTEST_DISABLE_PLUGIN_AUTOLOAD=1 /usr/bin/python3 -B -m pytest -q -p no:cacheprovider \
  "$source_dir/tests/install/stand_consumer/upload_test.py"

left=$(ls "$work/tmp")
if [ -n "$left" ]; then echo "left behind: $left" >&2; exit 1; fi
echo "the installed local test environment serves GoogleTest, pytest and the shell"
