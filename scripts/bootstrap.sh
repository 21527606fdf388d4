#!/usr/bin/env bash
# Installs the Debian packages that building and testing need, unless they are installed. The only place that names
# packages.
#   scripts/bootstrap.sh        what the library, the programs and their tests need
#   scripts/bootstrap.sh --test also the independent software and the test vectors that the tests compare with
#   scripts/bootstrap.sh --ci   also the formatter and the linter, if the release has the version that we use
#   scripts/bootstrap.sh --fuzz also the compiler with the fuzzer, and the symbolizer for its stack traces
set -euo pipefail

# Debian 12's default Boost is 1.74, which is too old for us; the default of later releases is new enough.
# We use version 14 of the formatter, the linter and the fuzzer, which only Debian 12 has.
release=$(. /etc/os-release && echo "${ID:-} ${VERSION_ID:-}")
if [ "$release" = "debian 12" ]; then boost=libboost1.81-dev llvm=14; else boost=libboost-dev llvm=; fi

packages=(
  g++ cmake ninja-build pkg-config           # toolchain
  libssl-dev "$boost"                        # the library
  libcurl4-openssl-dev                       # its transport
  libsqlite3-dev                             # the local test environment
  libcli11-dev                               # the commands
  libgtest-dev libgmock-dev libbenchmark-dev # tests and benchmarks
  openssl curl                               # keys and certificates for tests; drives the demo
)
# Bouncy Castle needs Java; headless, since nothing has a user interface.
if [ "${1:-}" = --test ]; then
  packages+=(gpgsm gpg-agent libnss3-tools libbcpkix-java default-jdk-headless)
  packages+=(python3-cryptography-vectors python3-simplejson)
  packages+=(chromium chromium-driver python3-selenium) # the page of the local test environment in a browser
  packages+=(python3-pytest python3-distributed mypy python3-pip python3-setuptools python3-wheel)
fi
if [ "${1:-}" = --ci ]; then
  packages+=(git)
  if [ -n "$llvm" ]; then
    packages+=("clang-format-$llvm" "clang-tidy-$llvm")
  else
    echo "bootstrap: no clang-format-14 and no clang-tidy-14 in this release: formatting is not checked here" >&2
  fi
fi
if [ "${1:-}" = --fuzz ]; then
  [ -n "$llvm" ] || { echo "bootstrap: fuzzing needs clang 14, which this release does not have" >&2; exit 1; }
  packages+=("clang-$llvm" "libclang-rt-$llvm-dev" "llvm-$llvm")
fi

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
