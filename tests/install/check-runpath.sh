#!/usr/bin/env bash
# Fails when a program or library of a build tree searches for its libraries where it should not. An empty element of
# RPATH or RUNPATH means the current directory: whoever can write there chooses the code that runs.
#   check-runpath.sh BUILD-DIR PROGRAM
# PROGRAM is one that uses libcurl; it is run beside a libcurl that says so when it is loaded.
set -euo pipefail
build_dir=$1
program=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

looked_at=0
failures=0
while IFS= read -r -d '' file; do
  # Words in square brackets, so that an empty one still shows.
  dynamic=$(readelf -dW "$file" 2>/dev/null) || continue
  looked_at=$((looked_at + 1))
  path=$(sed -nE 's/.*\((RPATH|RUNPATH)\).*\[(.*)\]$/:\2:/p' <<<"$dynamic")
  if [[ $path == *::* ]]; then
    echo "an empty element: $file $path" >&2
    failures=$((failures + 1))
  fi
done < <(find "$build_dir" -type d -name CMakeFiles -prune -o -type f \( -perm -u+x -o -name '*.so*' \) -print0)
[ "$looked_at" -gt 0 ] || { echo "no program or library below $build_dir" >&2; exit 1; }

cat >"$work/fake.c" <<'END'
#include <unistd.h>
__attribute__((constructor)) static void Loaded(void) {
  static const char text[] = "the library of the current directory runs\n";
  if (write(2, text, sizeof text - 1) < 0) _exit(70);
  _exit(71);
}
END
${CC:-cc} -shared -fPIC -o "$work/libcurl.so.4" "$work/fake.c"
if ! (cd "$work" && env -u LD_LIBRARY_PATH "$program" --version >/dev/null); then
  echo "$program does not run beside a library of the name libcurl.so.4" >&2
  failures=$((failures + 1))
fi
# Proves that the check above can fail: here the program does load the library.
if (cd "$work" && LD_LIBRARY_PATH=$work "$program" --version >/dev/null 2>&1); then
  echo "$program does not load libcurl.so.4 at all" >&2
  failures=$((failures + 1))
fi
[ "$failures" -eq 0 ] || exit 1
echo "$looked_at programs and libraries, none with an empty element"
