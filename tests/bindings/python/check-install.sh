#!/bin/sh
# The package as pip installs it: all modules, its types, and its version.
#   check-install.sh PYTHON SOURCE
set -eu
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp -R "$2" "$work/source" # building leaves files beside the sources
"$1" -m pip install --quiet --no-index --no-build-isolation --no-deps --no-compile --root-user-action ignore \
  --target "$work/installed" "$work/source"
(cd "$2/cryptcli" && find . -name '*.py' -o -name py.typed) | sort >"$work/expected"
(cd "$work/installed/cryptcli" && find . -type f) | sort | diff "$work/expected" -
cd "$work"
PYTHONPATH=$work/installed "$1" -B -c '
import importlib.metadata, cryptcli
assert cryptcli.__file__.startswith("'"$work"'"), cryptcli.__file__
assert importlib.metadata.version("cryptcli") == cryptcli.version(), importlib.metadata.version("cryptcli")
assert importlib.metadata.requires("cryptcli") is None
'
