#!/usr/bin/env bash
# Installs the Debian packages that building and testing need; what is there is left alone. The one place that names
# packages.
#   scripts/bootstrap.sh        what the library, its companions and their tests need
#   scripts/bootstrap.sh --ci   the formatter and the linter as well
set -euo pipefail

packages=(
  g++ cmake ninja-build pkg-config           # toolchain
  libssl-dev libboost1.81-dev                # the library
  libcurl4-openssl-dev                       # its transport
  libcpp-httplib-dev libsqlite3-dev          # the stand
  libcli11-dev                               # the commands
  libgtest-dev libgmock-dev libbenchmark-dev # tests and benchmarks
  openssl gpgsm gpg-agent curl                         # independent software that the tests compare with; curl drives the demo
)
if [ "${1:-}" = --ci ]; then packages+=(clang-format-14 clang-tidy-14 git); fi

missing=()
for package in "${packages[@]}"; do
  status=$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null || true)
  [ "$status" = installed ] || missing+=("$package")
done
[ ${#missing[@]} -gt 0 ] || exit 0

as_root=()
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || { echo "bootstrap: run as root, or install sudo, to get: ${missing[*]}" >&2; exit 1; }
  as_root=(sudo)
fi
echo "bootstrap: installing ${missing[*]}" >&2
"${as_root[@]}" apt-get update -qq
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
