#!/usr/bin/env bash
# Installs the Debian packages that building and testing need; what is there is left alone. The one place that names
# packages.
#   scripts/bootstrap.sh        what the library, its companions and their tests need
#   scripts/bootstrap.sh --test the independent software and the vectors that the tests compare with as well
#   scripts/bootstrap.sh --ci   the formatter and the linter as well
#   scripts/bootstrap.sh --fuzz the compiler with the fuzzer, and what names the lines of a stack, as well
set -euo pipefail

packages=(
  g++ cmake ninja-build pkg-config           # toolchain
  libssl-dev libboost1.81-dev                # the library
  libcurl4-openssl-dev                       # its transport
  libcpp-httplib-dev libsqlite3-dev          # the stand
  libcli11-dev                               # the commands
  libgtest-dev libgmock-dev libbenchmark-dev # tests and benchmarks
  openssl curl                               # keys and certificates for tests; drives the demo
)
# The Java of the default JDK is what Bouncy Castle needs, without a desktop.
if [ "${1:-}" = --test ]; then
  packages+=(gpgsm gpg-agent libnss3-tools libbcpkix-java default-jdk-headless)
  packages+=(python3-cryptography-vectors python3-simplejson)
fi
if [ "${1:-}" = --ci ]; then packages+=(clang-format-14 clang-tidy-14 git); fi
if [ "${1:-}" = --fuzz ]; then packages+=(clang-14 libclang-rt-14-dev llvm-14); fi

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
