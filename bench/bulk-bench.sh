#!/usr/bin/env bash
# Compares one run of the command over many small files with a loop that starts the command once for each file, for
# encrypt and decrypt, against a local test environment. Both write the same files; they take turns, and the ratio of the
# median times for one file is what holds on other machines. For the one run it also compares the processor time of the
# servers with that of the command: they must not be what is measured.
#   bench/bulk-bench.sh [--files N] [--loop N] [--size BYTES] [--jobs N] [--rounds N] [--build FOLDER]
# N files in the one run (1000), as many processes in the loop as --loop says (200), 1024 bytes each, 3 rounds.
set -euo pipefail
cd "$(dirname "$0")/.."
files=1000 loop=200 size=1024 rounds=3 build=build/release jobs=()
while [ $# -gt 0 ]; do
  case $1 in
    --files) files=$2 ;;
    --loop) loop=$2 ;;
    --size) size=$2 ;;
    --jobs) jobs=(--jobs "$2") ;;
    --rounds) rounds=$2 ;;
    --build) build=$2 ;;
    *) sed -n '2,/^set/{/^#/s/^# \?//p}' "$0"; exit 2 ;;
  esac
  shift 2
done

CRYPTSTAND=$build/stand/cryptstand
source stand/fixture/cryptstand.sh
trap cryptstand_stop EXIT
cryptstand_start --key-servers 3 --room demo
work=$CRYPTSTAND_FOLDER
export CRYPTCLI_SERVICE=$CRYPTSTAND_SERVICE CRYPTCLI_ROOM=demo XDG_CONFIG_HOME=$work TMPDIR=$work
cryptcli=$PWD/$build/tools/cryptcli

mkdir "$work/plain"
for i in $(seq "$files"); do head -c "$size" /dev/urandom >"$work/plain/$i"; done
"$cryptcli" encrypt "$work/plain/1" "$work/first.p7m" >/dev/null # makes the room's key, which takes long

now() { date +%s%N; }
per_file() { awk -v begin="$1" -v end="$2" -v count="$3" 'BEGIN { printf "%.3f\n", (end - begin) / 1e6 / count }'; }
median() { sort -n | awk '{ value[NR] = $1 } END { print NR % 2 ? value[(NR + 1) / 2] : (value[NR / 2] + value[NR / 2 + 1]) / 2 }'; }

ticks=$(getconf CLK_TCK)
server_cpu() { awk -v ticks="$ticks" '{ print ($14 + $15) * 1000 / ticks }' "/proc/$cryptstand_process/stat"; } # milliseconds
TIMEFORMAT='%U %S'

one_run() { # operation, folder to read, folder to write
  local begin server
  server=$(server_cpu)
  begin=$(now)
  { time "$cryptcli" "$1" --recursive "$2" --output-dir "$3" "${jobs[@]}" >/dev/null 2>"$work/errors"; } 2>"$work/time" ||
    { cat "$work/errors" >&2; exit 1; }
  per_file "$begin" "$(now)" "$files"
  awk -v before="$server" -v after="$(server_cpu)" -v count="$files" '{ print (after - before) / count }' "$work/time" \
    >>"$work/$1.server"
  awk -v count="$files" '{ print ($1 + $2) * 1000 / count }' "$work/time" >>"$work/$1.client"
}
one_by_one() { # operation, folder to read, end of its names, folder to write, end of its names
  local begin i
  mkdir "$4"
  begin=$(now)
  for i in $(seq "$loop"); do "$cryptcli" "$1" "$2/$i$3" "$4/$i$5" >/dev/null; done
  per_file "$begin" "$(now)" "$loop"
}

for _ in $(seq "$rounds"); do
  rm -rf "$work"/out-*
  one_run encrypt "$work/plain" "$work/out-encrypted" >>"$work/encrypt.run"
  one_by_one encrypt "$work/plain" "" "$work/out-loop" .p7m >>"$work/encrypt.loop"
  one_run decrypt "$work/out-encrypted" "$work/out-decrypted" >>"$work/decrypt.run"
  one_by_one decrypt "$work/out-encrypted" .p7m "$work/out-opened" "" >>"$work/decrypt.loop"
  diff -r "$work/plain" "$work/out-decrypted"
done

printf '%s\n' "$files files of $size bytes in one run, $loop in a loop of processes, median of $rounds, milliseconds for a file"
for operation in encrypt decrypt; do
  run=$(median <"$work/$operation.run")
  each=$(median <"$work/$operation.loop")
  awk -v name="$operation" -v run="$run" -v each="$each" \
    'BEGIN { printf "%-8s one run %7.3f   loop %7.3f   ratio %.2f\n", name, run, each, each / run }'
  client=$(median <"$work/$operation.client")
  server=$(median <"$work/$operation.server")
  awk -v client="$client" -v server="$server" \
    'BEGIN { printf "         processor time: command %.3f, cryptstand %.3f, ratio %.2f\n", client, server, server / client }'
done
