#!/usr/bin/env bash
# Installs a build into an empty prefix, moves that, builds programs against it, once through CMake and once through
# pkg-config, and runs them, the example against the installed cryptstand.
#   check-install.sh SOURCE-DIR BUILD-DIR
set -euo pipefail
source_dir=$1
build_dir=$2
work=$(mktemp -d)
stand=
leave() {
  if [ -n "$stand" ]; then kill -TERM "$stand" 2>/dev/null || true; wait "$stand" 2>/dev/null || true; fi
  rm -rf "$work"
}
trap leave EXIT

cmake --install "$build_dir" --prefix "$work/first" >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }
mv "$work/first" "$work/prefix"
prefix=$work/prefix
class_consumer=$source_dir/tests/install/subproject/consumer.cpp
libdir=$(dirname "$(find "$prefix" -name libcryptcli.so)")

cmake -G Ninja -S "$source_dir/tests/install/consumer" -B "$work/consumer" -DCMAKE_PREFIX_PATH="$prefix" \
  -DEXAMPLE="$source_dir/examples/protect.cpp" -DCLASS_CONSUMER="$class_consumer" >"$work/log" 2>&1 &&
  cmake --build "$work/consumer" >>"$work/log" 2>&1 || { cat "$work/log"; exit 1; }

export PKG_CONFIG_PATH=$libdir/pkgconfig
read -ra c_flags < <(pkg-config --cflags --libs cryptcli-c)
g++ -std=c++20 "$source_dir/examples/protect.cpp" "${c_flags[@]}" -Wl,-rpath,"$libdir" -o "$work/by-pkg-config"
read -ra flags < <(pkg-config --cflags --libs cryptcli-curl)
g++ -std=c++20 "$class_consumer" "${flags[@]}" -Wl,-rpath,"$libdir" -o "$work/class-by-pkg-config"
for program in "$work/consumer/class_consumer" "$work/class-by-pkg-config"; do
  "$program" >/dev/null
done

"$prefix"/bin/cryptstand --dir "$work/stand" --key-servers 1 --room demo --url-file "$work/urls" >"$work/stand.log" 2>&1 &
stand=$!
for _ in $(seq 300); do [ -s "$work/urls" ] && break; sleep 0.1; done
service=$(sed -nE 's/.*"service" *: *"([^"]*)".*/\1/p' "$work/urls")
echo "some bytes" >"$work/file"
for program in "$work/consumer/consumer" "$work/by-pkg-config"; do
  "$program" "$service" demo "$work/file"
  cmp "$work/file" "$work/file.opened"
  rm "$work/file.opened"
done
gcc -std=c11 "$source_dir/tests/bindings/c/protect_program.c" "${c_flags[@]}" -Wl,-rpath,"$libdir" -o "$work/in-c"
"$work/in-c" "$service" demo "$work/file" "$work/file.p7m"
LD_LIBRARY_PATH=$libdir PYTHONPATH=$prefix/lib/python3/dist-packages PYTHONDONTWRITEBYTECODE=1 python3 -c '
import sys, cryptcli
with cryptcli.Client(sys.argv[1]) as client:
    assert client.verify("demo", sys.argv[2]).origin is cryptcli.Origin.PROVEN
' "$service" "$work/file.p7m"
"$prefix"/bin/cryptcli inspect "$work/file.p7m"
echo "installed, moved, built against and run"
