#!/usr/bin/env bash
# Runs scripts/test.sh on a project with one suite, whose peer software is missing at first and installed later.
#   check-test-script.sh SOURCES
set -euo pipefail
unset CI
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp -r "$1/scripts" "$1/CMakePresets.json" "$work"
cp "$1/tests/missing_peer.cmake" "$1/tests/missing-peer.sh" "$work"
printf '#!/bin/sh\n' >"$work/scripts/bootstrap.sh"
cat >"$work/CMakeLists.txt" <<'END'
cmake_minimum_required(VERSION 3.25)
project(scripts LANGUAGES NONE)
option(CRYPTCLI_WERROR "As in the whole project" OFF)
enable_testing()
include(missing_peer.cmake)
add_test(NAME always COMMAND echo "[  SKIPPED ] 3 tests, listed below:")
find_file(PEER peer PATHS ${CMAKE_SOURCE_DIR} NO_DEFAULT_PATH)
if(PEER)
  add_test(NAME peer_tests COMMAND true)
else()
  cryptcli_missing_peer(peer_tests "the peer")
endif()
END

fail() { echo "check_test_script: $1" >&2; cat "$work/output" >&2; exit 1; }
run() { (cd "$work" && "$@") >"$work/output" 2>&1; }
last_line() { tail -n 1 "$work/output"; }

run scripts/test.sh || fail "a skipped suite failed the run"
[ "$(last_line)" = "test: skipped, since something is missing: peer_tests" ] || fail "the last line does not name the skipped suite"
if run env CI=1 scripts/test.sh; then fail "a skipped suite passed where CI is set"; fi
grep -q '^test: single cases that could not run here: 3 ' "$work/output" || fail "cases that skip themselves are not counted"
touch "$work/peer"
run scripts/test.sh || fail "a run with the peer failed"
grep -q 'peer_tests .* Passed' "$work/output" || fail "the peer is installed and its suite did not run"
if grep -q 'test: skipped' "$work/output"; then fail "something was skipped although the peer is installed"; fi

rm -r "$work/build"
is_strict() { grep -q '^CRYPTCLI_WERROR:BOOL=ON$' "$work/build/release/CMakeCache.txt"; }
run scripts/build.sh release || fail "building failed"
if is_strict; then fail "warnings are errors without CI"; fi
run env CI=1 scripts/build.sh release || fail "building with CI failed"
is_strict || fail "warnings are not errors with CI"
