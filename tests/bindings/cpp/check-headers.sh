#!/usr/bin/env bash
# Compiles the C++ interface in every mode that is supported, with our warnings as errors, by the compiler of the build and
# by all others that are installed; links a program against the shared library and runs it.
#   check-headers.sh SOURCE-DIR LIBRARY-DIR COMPILER
set -euo pipefail
source_dir=$1
libraries=$2
compiler=$3
headers=$source_dir/bindings/cpp/include
consumer=$source_dir/tests/bindings/cpp/consumer.cpp
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# The warnings that all compilers know; cmake/Warnings.cmake says why one is off.
mapfile -t warnings < <(sed -n '/^target_compile_options(cryptcli_warnings/,/)$/p;/^if/q' "$source_dir/cmake/Warnings.cmake" |
  grep -oE -- '-W[^ $)>]+' | grep -v Werror)
[ "${#warnings[@]}" -gt 10 ] || { echo "no warnings in cmake/Warnings.cmake" >&2; exit 1; }
warnings_for() { case $1 in *clang*) echo -Wno-shadow ;; *) echo -Wno-null-dereference ;; esac; }

run() { "$@" >"$work/log" 2>&1 || { echo "failed: $*" >&2; cat "$work/log" >&2; exit 1; }; }
compile() { # compiler, flags...
  run "$1" "${warnings[@]}" "$(warnings_for "$1")" -Werror -I"$source_dir/bindings/c/include" -I"$headers" "${@:2}"
}
link=(-L"$libraries" -Wl,-rpath,"$libraries" -lcryptcli-c)

compilers=("$compiler")
for name in g++-12 g++-13 g++-14 g++-15 clang++-{14..20}; do
  path=$(readlink -f "$(command -v "$name")") || continue
  if [ "$path" != "$(readlink -f "$compiler")" ]; then compilers+=("$name"); fi
done
for one in "${compilers[@]}"; do
  for mode in "-std=c++20" "-std=c++20 -fno-exceptions -fno-rtti" "-std=c++2b" "-std=c++2b -fno-exceptions -fno-rtti"; do
    read -ra flags <<<"$mode"
    compile "$one" "${flags[@]}" -fsyntax-only "$consumer"
  done
done

# Each header alone.
while IFS= read -r header; do
  compile "$compiler" -std=c++20 -fsyntax-only -x c++ -include "$header" /dev/null
done < <(find "$headers" -name '*.hpp')

# A program in each mode, optimised, and with the sanitizer that would ask for type information.
for mode in "-std=c++20" "-std=c++20 -fno-exceptions -fno-rtti" "-std=c++2b" \
    "-std=c++20 -fsanitize=undefined -fno-sanitize-recover=all"; do
  read -ra flags <<<"$mode"
  compile "$compiler" "${flags[@]}" -O2 "$consumer" -o "$work/consumer" "${link[@]}"
  run "$work/consumer"
done

# All modes in one program: none may take another's inline functions for its own. The linker prefers the first.
objects=()
calls=
for mode in "-std=c++20 -fno-exceptions" "-std=c++20" "-std=c++2b -fno-exceptions" "-std=c++2b"; do
  name=Consume${#objects[@]}
  read -ra flags <<<"$mode"
  compile "$compiler" "${flags[@]}" -DCONSUMER_NAME="$name" -c "$consumer" -o "$work/$name.o"
  objects+=("$work/$name.o")
  calls+=" + $name()"
  echo "int $name();" >>"$work/main.cpp"
done
echo "int main() { return 0$calls; }" >>"$work/main.cpp"
run "$compiler" "$work/main.cpp" "${objects[@]}" -o "$work/mixed" "${link[@]}"
run "$work/mixed"
echo "compiled by ${compilers[*]}, linked and run in each mode"
