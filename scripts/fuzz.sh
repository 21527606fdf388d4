#!/usr/bin/env bash
# Builds the fuzz targets and runs the named ones, or all, one after another; then prints executions and coverage, and
# puts the minimised finds into fuzz/corpus.
#   scripts/fuzz.sh [TARGET...] [--seconds N] [--jobs N] [--no-merge]
# Each target runs for N seconds (default 60), in N processes at once (default 1). Logs are in build/fuzz/logs, the
# working corpora in build/fuzz/found, inputs that broke something in build/fuzz/artifacts.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=60 jobs=1 merge=yes targets=()
while [ $# -gt 0 ]; do
  case $1 in
    --seconds) seconds=${2:?}; shift 2 ;;
    --jobs) jobs=${2:?}; shift 2 ;;
    --no-merge) merge=; shift ;;
    -*) echo "usage: scripts/fuzz.sh [TARGET...] [--seconds N] [--jobs N] [--no-merge]" >&2; exit 2 ;;
    *) targets+=("$1"); shift ;;
  esac
done
if [ ${#targets[@]} -eq 0 ]; then
  mapfile -t targets < <(for source in fuzz/*_fuzzer.cpp; do basename "$source" _fuzzer.cpp; done)
fi
for target in "${targets[@]}"; do
  [ -f "fuzz/${target}_fuzzer.cpp" ] || { echo "fuzz: there is no target $target" >&2; exit 2; }
done
scripts/bootstrap.sh --fuzz
scripts/build.sh fuzz fuzzers

logs=build/fuzz/logs
mkdir -p "$logs"
# Most targets write files for each input: a memory file system is faster than a disk.
if [ -z "${TMPDIR:-}" ] && [ -w /dev/shm ]; then export TMPDIR=/dev/shm; fi
# Recording long stacks for each allocation would take half of the time.
export ASAN_OPTIONS=malloc_context_size=3:quarantine_size_mb=32 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1

option_flags() { # target
  local name value
  sed -nE 's/^([a-z_]+) *= *(.*)$/\1 \2/p' "fuzz/$1_fuzzer.options" | while read -r name value; do
    if [ "$name" = dict ]; then value=fuzz/$value; fi
    echo "-$name=$value"
  done
}

# The final coverage in a target's log: number of edges, and of features (edges with their counts).
last_figures() { # log
  grep -oE 'cov: [0-9]+ ft: [0-9]+' "$1" | tail -n 1 || true
}

run_target() { # target
  local target=$1 found=build/fuzz/found/$1 artifacts=build/fuzz/artifacts/$1 log=$logs/$1.log job pids=() failed=
  mkdir -p "$found" "$artifacts" "fuzz/corpus/$target"
  mapfile -t flags < <(option_flags "$target")
  for ((job = 0; job < jobs; ++job)); do
    "build/fuzz/fuzz/${target}_fuzzer" "${flags[@]}" "-max_total_time=$seconds" -print_final_stats=1 \
      "-artifact_prefix=$artifacts/" "$found" "fuzz/seeds/$target" "fuzz/corpus/$target" >"$log.$job" 2>&1 &
    pids+=($!)
  done
  for job in "${!pids[@]}"; do
    wait "${pids[$job]}" || { failed=yes; echo "$target: broke; see $log.$job" >&2; tail -n 40 "$log.$job" >&2; }
    printf '%s: %s executions in %s s, %s\n' "$target" \
      "$(sed -nE 's/^stat::number_of_executed_units: *//p' "$log.$job")" "$seconds" "$(last_figures "$log.$job")" |
      tee -a "$logs/summary.txt"
  done
  [ -z "$failed" ]
}

# Replaces the corpus by the fewest inputs that cover what the seeds do not. Further flags may make it smaller.
minimise() { # target, further flags
  local target=$1 merged=build/fuzz/merged/$1 seed size
  mapfile -t flags < <(option_flags "$target")
  rm -rf "$merged"
  mkdir -p "$merged"
  cp -r "fuzz/seeds/$target/." "$merged/"
  "build/fuzz/fuzz/${target}_fuzzer" "${flags[@]}" "${@:2}" -set_cover_merge=1 "$merged" "build/fuzz/found/$target" \
    "fuzz/corpus/$target" >"$logs/$target.merge.log" 2>&1 || { tail -n 20 "$logs/$target.merge.log" >&2; return 1; }
  for seed in "fuzz/seeds/$target"/*; do rm -f "$merged/$(basename "$seed")"; done
  size=$(find "$merged" -type f -printf '%s\n' | awk '{ sum += $1 } END { print sum + 0 }')
  if [ "$size" -gt 204800 ] && [ $# -eq 1 ]; then
    minimise "$target" -use_counters=0  # ignores how often an edge is taken
    return
  fi
  rm -rf "fuzz/corpus/$target"
  mv "$merged" "fuzz/corpus/$target"
  echo "$target: $(find "fuzz/corpus/$target" -type f | wc -l) finds, $size bytes"
}

broken=
for target in "${targets[@]}"; do
  run_target "$target" || broken=yes
  if [ -n "$merge" ]; then minimise "$target" || broken=yes; fi
done
[ -z "$broken" ]
