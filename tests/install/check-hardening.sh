#!/usr/bin/env bash
# Fails unless each shipped program and library was built with hardening, and contains no path of the machine that built
# it. Does not require what the compiler or the C library of this machine lacks.
#   check-hardening.sh SOURCE-DIR FILE...     programs, shared libraries, and the archives (.a) of their objects
set -euo pipefail
source_dir=$1
shift
failures=0
fail() { echo "hardening: $*" >&2; failures=$((failures + 1)); }
has_cet() { readelf -nW "$1" 2>/dev/null | grep -q 'x86 feature:.*IBT.*SHSTK'; }

machine=$(uname -m)
# The linker keeps the property only if all objects have it, and two of them come from the C library.
start_files_have_cet=no
if has_cet "$(${CXX:-c++} -print-file-name=crti.o)"; then start_files_have_cet=yes; fi

check_loading() { # file: its instructions for the loader
  local dynamic segments
  dynamic=$(readelf -dW "$1")
  segments=$(readelf -lW "$1")
  grep -qE 'BIND_NOW|FLAGS_1.* NOW' <<<"$dynamic" || fail "$1 binds its symbols when they are called"
  grep -q 'GNU_RELRO' <<<"$segments" || fail "$1 leaves its relocations writable"
  grep -qE 'GNU_STACK.* RW +0x' <<<"$segments" || fail "$1 asks for a stack that can be executed"
  if grep -q '(TEXTREL)' <<<"$dynamic"; then fail "$1 writes to its code while it is loaded"; fi
  readelf -hW "$1" | grep -q 'Type: *DYN' || fail "$1 is not position-independent"
  if sed -nE 's/.*\((RPATH|RUNPATH)\).*\[(.*)\]$/:\2:/p' <<<"$dynamic" | grep -q '::\|:[^$/:]'; then
    fail "$1 searches for libraries in a folder that the current directory decides"
  fi
}

check_code() { # file: what the compiler put into it
  local imported
  imported=$(nm -D --undefined-only "$1" | sed -E 's/^ *[UwW] //; s/@.*//')
  grep -qx '__stack_chk_fail' <<<"$imported" || fail "$1 has no stack protector"
  # GCC always replaces these, whether or not it knows the size of their target; clang leaves them alone in C++. Of
  # vsnprintf the standard library takes the address (std::to_string of a double), which is not replaced.
  if ! readelf -p .comment "$1" | grep -q clang && grep -xE 'v?f?printf|vsprintf|sn?printf' <<<"$imported" >&2; then
    fail "$1 formats without _FORTIFY_SOURCE"
  fi
  fortified=$((fortified + $(grep -cE '^__[a-z0-9_]+_chk$' <<<"$imported" || true)))
  if grep -qaF "$source_dir" "$1"; then fail "$1 names the folder that it was built in"; fi
  # The compiler's own record of its flags, where it keeps one: the probes themselves are only in large frames.
  local producer
  producer=$(readelf -p .debug_str "$1" 2>/dev/null | grep 'GNU C++20' || true)
  if [ -n "$producer" ] && ! grep -q 'fstack-clash-protection' <<<"$producer"; then
    fail "$1 has no protection against a clash of stack and heap"
  fi
}

check_archive() { # file: each object allows indirect branches to be checked
  local objects with
  [ "$machine" = x86_64 ] || return 0
  objects=$(ar t "$1" | wc -l)
  with=$(readelf -nW "$1" | grep -c 'x86 feature:.*IBT.*SHSTK' || true)
  if [ "$objects" -eq 0 ] || [ "$with" -ne "$objects" ]; then
    fail "$1: $with of $objects objects have IBT and SHSTK"
  fi
}

programs=0
fortified=0
for file in "$@"; do
  if [[ $file == *.a ]]; then
    check_archive "$file"
    continue
  fi
  programs=$((programs + 1))
  check_loading "$file"
  check_code "$file"
  if [ "$machine" = x86_64 ] && [ "$start_files_have_cet" = yes ]; then
    has_cet "$file" || fail "$file has neither IBT nor SHSTK"
  fi
done
[ "$programs" -gt 0 ] || fail "nothing to look at"
[ "$fortified" -gt 0 ] || fail "no call of the C library is fortified"
[ "$failures" -eq 0 ] || exit 1
echo "$programs programs and libraries are hardened; $fortified fortified calls are imported"
