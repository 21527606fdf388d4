#!/usr/bin/env bash
# The library hands out the members of its class and no type information of it. Fails unless a user's program links and
# runs under UndefinedBehaviorSanitizer in the documented way, without the one check that needs that information; and
# unless the limit that the documents state is still there.
#   check-typeinfo.sh SOURCE-DIR LIBRARY-DIR COMPILER
set -euo pipefail
source_dir=$1
libraries=$2
compiler=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

build() { # flags...
  "$compiler" -std=c++20 -g -I"$source_dir" "$@" "$source_dir/tests/install/typeinfo_consumer.cpp" -o "$work/consumer" \
    -L"$libraries" -Wl,-rpath,"$libraries" -lcryptcli -lorusec -lorugui >"$work/log" 2>&1
}
must_build() { build "$@" || { echo "does not build with $*:" >&2; cat "$work/log" >&2; exit 1; }; }
must_lack_typeinfo() {
  if build "$@"; then echo "builds with $*: the documents say that it does not" >&2; exit 1; fi
  grep -q 'undefined reference.*typeinfo for OruKalvix::CryptClient' "$work/log" || { cat "$work/log" >&2; exit 1; }
}

must_build
"$work/consumer" >/dev/null
must_build -fsanitize=undefined -fno-sanitize=vptr -fno-sanitize-recover=all
"$work/consumer" >/dev/null
must_build -fsanitize=address,undefined -fno-sanitize=vptr -fno-sanitize-recover=all
ASAN_OPTIONS=detect_leaks=1 "$work/consumer" >/dev/null
must_lack_typeinfo -fsanitize=undefined
must_lack_typeinfo -DASK_FOR_TYPE
echo "links and runs under the sanitizer without its check of virtual tables"
