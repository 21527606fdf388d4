#!/usr/bin/env bash
# Shows the main features in a local test environment: protects a file, opens it again, survives the loss of a key
# server, and refuses a file that was tampered with.
#   scripts/demo.sh [FILE]     without FILE it makes a sample of a few MiB
set -euo pipefail
source_file=${1:+$(realpath "$1")}
cd "$(dirname "$0")/.."
scripts/bootstrap.sh
echo "Building (a first time takes a few minutes) ..."
scripts/build.sh release cryptcli_command cryptstand

source scripts/stand.sh
make_work
cryptcli=$PWD/build/release/tools/cryptcli
heading() { printf '\n== %s\n' "$*"; }

if [ -z "$source_file" ]; then
  source_file=$work/sample.bin
  head -c 5M /dev/urandom >"$source_file"
fi

heading "A local test environment: one crypt service, three key servers"
start_stand build/release --key-servers 3 --room demo
cat "$work/stand.log"
service=$(sed -nE 's/.*"service" *: *"([^"]*)".*/\1/p' "$work/urls.json")
key_server=$(sed -nE 's/.*"keyservers" *: *\[ *"([^"]*)".*/\1/p' "$work/urls.json")

protect() { "$cryptcli" encrypt --service "$service" --room demo "$@" "$source_file" "$work/protected.p7m"; }
open() { "$cryptcli" decrypt --service "$service" --room demo "$@" "$work/protected.p7m" "$work/opened"; }
compare() { cmp "$source_file" "$work/opened" && echo "The bytes are the same."; }

heading "Protect $(basename "$source_file") ($(stat -c %s "$source_file") bytes) for a room that has no key yet"
protect
heading "What the protected file contains"
"$cryptcli" inspect "$work/protected.p7m"
heading "Open it again"
open --json
compare

heading "Failover: the key server $key_server stops"
curl -sf -X POST -d "{\"server\":\"$key_server\",\"fault\":\"down\"}" "${service%/}/stand/fault" >/dev/null
# Each run starts at a random server; repeat until one has tried the dead server.
tried=
for round in $(seq 20); do
  protect --force --trace 1 2>"$work/trace"
  open --force --json --trace 1 2>>"$work/trace"
  compare
  if grep -q "Could not connect to key server" "$work/trace"; then
    grep -m 1 "Could not connect to key server" "$work/trace"
    echo "Round $round tried the dead server and went on with the next one."
    tried=yes
    break
  fi
done
[ -n "$tried" ] || { echo "No round tried the dead server: failover was not shown." >&2; exit 1; }

heading "One byte of the protected file is flipped"
size=$(stat -c %s "$work/protected.p7m")
middle=$((size / 2))
byte=$(od -An -tu1 -j "$middle" -N 1 "$work/protected.p7m")
printf "\\x$(printf %02x $((byte ^ 1)))" | dd of="$work/protected.p7m" bs=1 seek="$middle" conv=notrunc status=none
rm -f "$work/opened"
if open; then echo "The tampered file was opened: this must not happen." >&2; exit 1; fi
if [ -e "$work/opened" ]; then echo "Something was delivered: this must not happen." >&2; exit 1; fi
echo "Nothing was delivered."
