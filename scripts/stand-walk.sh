#!/usr/bin/env bash
# Takes the first walk of docs/stand.md in a temporary folder: runs its blocks marked "sh" in one shell, and does in a
# real browser what it says about the page. Only the document has the commands, so it is right if this passes.
#   scripts/stand-walk.sh [BUILD]     without the folder of a build it builds one
set -euo pipefail
build=${1:+$(realpath "$1")}
cd "$(dirname "$0")/.."
root=$PWD
if [ -z "$build" ]; then
  scripts/bootstrap.sh --test
  scripts/build.sh release cryptcli_command cryptcli-c cryptstand
  build=$root/build/release
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# A comment "page: STEP" becomes the command "page STEP".
awk '/^## / { inside = $0 == "## A first walk" }
  !inside { next }
  /^```/ { code = !code && $0 == "```sh"; next }
  code { print }
  /^<!-- page: [a-z]+ -->$/ { print "page", $3 }' docs/stand.md >"$work/commands"
[ -s "$work/commands" ] || { echo "docs/stand.md has no first walk" >&2; exit 1; }

# Only what the walk itself sets is to count.
unset "${!CRYPTCLI_@}"
export PATH=$build/tools:$build/stand:$PATH
export PYTHONPATH=$root/bindings/python PYTHONDONTWRITEBYTECODE=1 CRYPTCLI_LIBRARY=$build/lib/libcryptcli-c.so.1
export XDG_CONFIG_HOME=$work/config
CHROMIUM=${CHROMIUM:-$(command -v chromium)}
CHROMEDRIVER=${CHROMEDRIVER:-$(command -v chromedriver)}
export CHROMIUM CHROMEDRIVER

# The program for the page lives as long as the walk, as the tab of a person would. It is the interpreter that Debian's
# packages belong to, whatever else the search path offers.
export steps_program=$root/tests/stand/page/walk.py
cat >"$work/walk" <<'END'
set -eu
finish() {
  local status=$?
  set +euv
  if [ -n "${steps_PID:-}" ]; then # it still runs, and closes the browser when its input ends
    exec {steps[1]}>&-
    wait "$steps_PID"
  fi
  kill $(jobs -p) 2>/dev/null
  wait
  exit $status
}
trap finish EXIT
page() {
  if [ -z "${steps_PID:-}" ]; then
    coproc steps { HOME=$PWD/browser exec /usr/bin/python3 "$steps_program"; }
  fi
  local response
  echo "$1" >&${steps[1]}
  read -r response <&${steps[0]}
  test "$response" = done
}
set -v
END
cat "$work/commands" - >>"$work/walk" <<<"page end"
cd "$work"
timeout 240 bash walk
echo "stand-walk: the walk of docs/stand.md works"
