#!/usr/bin/env bash
# Shows the main features in a local test environment: protects a file, opens it again, survives the loss of a key
# server, and refuses files that were tampered with or forged.
#   scripts/demo.sh [FILE]     without FILE it makes a sample of a few MiB
set -euo pipefail
source_file=${1:+$(realpath "$1")}
cd "$(dirname "$0")/.."
scripts/bootstrap.sh
echo "Building (a first time takes a few minutes) ..."
scripts/build.sh release cryptcli_command cryptstand

source stand/fixture/cryptstand.sh
trap cryptstand_stop EXIT
export CRYPTSTAND=$PWD/build/release/stand/cryptstand
cryptcli=$PWD/build/release/tools/cryptcli
heading() { printf '\n== %s\n' "$*"; }

heading "A local test environment: one crypt service, three key servers"
cryptstand_start --key-servers 3 --room demo
work=$CRYPTSTAND_FOLDER
service=$CRYPTSTAND_SERVICE
cat "$work/output"
if [ -z "$source_file" ]; then
  source_file=$work/sample.bin
  head -c 5M /dev/urandom >"$source_file"
fi
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
cryptstand_control POST /stand/v1/faults "{\"server\":\"$key_server\",\"fault\":\"down\"}" >"$work/fault"
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

# Nothing may be delivered but what was protected, and that only with its proof.
protected=$work/protected.p7m
refused=0
heading "One bit of the protected file is flipped, at ten places"
size=$(stat -c %s "$protected")
for place in $(seq 0 9); do
  at=$((place * (size - 1) / 9))
  byte=$(od -An -tu1 -j "$at" -N 1 "$protected")
  cp "$protected" "$work/flipped.p7m"
  printf "\\x$(printf %02x $((byte ^ 1 << place % 8)))" |
    dd of="$work/flipped.p7m" bs=1 seek="$at" conv=notrunc status=none
  rm -f "$work/opened"
  code=0
  "$cryptcli" decrypt --service "$service" --room demo "$work/flipped.p7m" "$work/opened" 2>"$work/reason" || code=$?
  if [ "$code" -eq 0 ]; then
    # Nothing authenticates the header of the envelope: a few bits there leave content and proof as they were.
    compare >/dev/null || { echo "Other content was delivered: this must not happen." >&2; exit 1; }
    echo "byte $at: no effect, the same content with its proof"
  else
    [ ! -e "$work/opened" ] || { echo "Something was delivered: this must not happen." >&2; exit 1; }
    refused=$((refused + 1))
    echo "byte $at: refused with exit code $code: $(head -n 1 "$work/reason" | cut -c 1-90)"
  fi
done
[ "$refused" -ge 8 ] || { echo "Only $refused of ten were refused: this must not happen." >&2; exit 1; }

expect_refusal() { # file
  local code=0
  rm -f "$work/opened"
  "$cryptcli" decrypt --service "$service" --room demo "$1" "$work/opened" || code=$?
  if [ "$code" -ne 3 ] || [ -e "$work/opened" ]; then
    echo "Exit code $code instead of 3, or something was delivered: this must not happen." >&2
    exit 1
  fi
  echo "Exit code 3: nothing was delivered."
}

heading "Anybody with the room's certificate encrypts something for the room"
curl -sf "${service%/}/crypt/key/demo" | sed -nE 's/.*"certificate" *: *"([^"]*)".*/\1/p' | sed 's/\\n/\n/g; s/\\//g' \
  >"$work/room.pem"
echo "Pay 1000 to the attacker." >"$work/forged.txt"
openssl cms -encrypt -binary -aes256 -outform DER -in "$work/forged.txt" -out "$work/forged.p7m" "$work/room.pem"
expect_refusal "$work/forged.p7m"

heading "The same, signed with a key of their own"
openssl req -x509 -newkey rsa:2048 -nodes -keyout "$work/forger.key" -out "$work/forger.pem" -days 1 \
  -subj "/CN=Forger" 2>/dev/null
openssl cms -sign -nodetach -binary -md sha512 -outform DER -signer "$work/forger.pem" -inkey "$work/forger.key" \
  -in "$work/forged.txt" -out "$work/signed.p7m"
openssl cms -encrypt -binary -aes256 -outform DER -in "$work/signed.p7m" -out "$work/forged.p7m" "$work/room.pem"
expect_refusal "$work/forged.p7m"
