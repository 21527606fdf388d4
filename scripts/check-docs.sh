#!/usr/bin/env bash
# Fails when a document names something that is not there: a link or its heading, a path of this repository, or a pattern
# of test names (ctest -R) that fits no test.
set -euo pipefail
cd "$(dirname "$0")/.."
failures=0
fail() { echo "docs: $*" >&2; failures=$((failures + 1)); }

folders='bench|bindings|client|cmake|docs|examples|exchange|foundation|fuzz|protection|roomkeys|scripts|security|stand|tests|tools|transport'
tests=$(grep -rhoE '(cryptcli(_python)?_test\(|add_test\(NAME )[a-z_.]+' --include=CMakeLists.txt tests fuzz | sed -E 's/.*[( ]//')

headings() { # document; prints the anchors of its headings
  sed -nE 's/^#+ +//p' "$1" | tr 'A-Z ' 'a-z-' | tr -cd 'a-z0-9_\n-'
}

prose() { # document; without code between fences, where "](" begins a lambda
  awk '/^```/ { code = !code; next } !code' "$1"
}

check_links() { # document
  local target file
  while IFS= read -r target; do
    file=$(dirname "$1")/${target%%#*}
    if [[ $target == \#* ]]; then file=$1; fi
    if [ ! -e "$file" ]; then fail "$1 links to $target"; continue; fi
    [[ $target != *#* ]] || headings "$file" | grep -qxF "${target#*#}" || fail "$1 links to $target"
  done < <(prose "$1" | grep -oE '\]\([^)]+\)' | sed -E 's/^\]\(//; s/\)$//' | grep -v '^https:' || true)
}

check_paths() { # document; a path in backticks may have capitals that stand for a name
  local path
  while IFS= read -r path; do
    # Without the last slash: compgen prints a path that ends in one whether it exists or not.
    compgen -G "${path%/}" >/dev/null || fail "$1 names $path"
  done < <(grep -oE "\`($folders)/[^\` :]*" "$1" | tr -d '`' | grep -vE '[A-Z]{3}' || true)
}

check_tests() { # document
  local pattern
  while IFS= read -r pattern; do
    grep -qE "$pattern" <<<"$tests" || fail "$1 names the tests $pattern"
  done < <(grep -oE -- "-R ('[^']+'|[A-Za-z_]+)" "$1" | sed -E "s/^-R //; s/'//g; s/\\\\?\|/\n/g" |
    grep -vx NAME || true)
}

mapfile -t documents < <(find . -path ./build -prune -o -name '*.md' -print | sed 's|^\./||' | sort)
for document in "${documents[@]}"; do
  check_links "$document"
  check_paths "$document"
  check_tests "$document"
done
if [ "$failures" -gt 0 ]; then echo "docs: $failures failures" >&2; exit 1; fi
echo "docs: links, paths and tests of ${#documents[@]} documents exist"
