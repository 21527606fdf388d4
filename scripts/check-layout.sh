#!/usr/bin/env bash
# Checks what the compiler does not: folders include only folders below them, public headers compile alone and include
# no OpenSSL, no Boost and no curl, each of these libraries is used in one place only, and files are named by one rule.
set -euo pipefail
cd "$(dirname "$0")/.."
failures=0
fail() { echo "layout: $*" >&2; failures=$((failures + 1)); }

# Folder, and the folders that it may include.
declare -A allowed=(
  [foundation]="foundation"
  [security]="security foundation"
  [roomkeys]="roomkeys exchange client security foundation"
  [exchange]="exchange client roomkeys security foundation"
  [protection]="protection roomkeys exchange client security foundation"
  [client]="client exchange roomkeys security foundation"
  [transport]="transport client exchange roomkeys security foundation"
  [bindings]="bindings transport client exchange security foundation"
  [stand]="stand security foundation"
  [tools]="tools security foundation"
  [examples]="transport client exchange roomkeys security foundation"
)
# The four folders of class CryptClient include each other in sources. In headers, only client/ may include all others.
declare -A allowed_in_headers=(
  [exchange]="exchange foundation"
  [roomkeys]="roomkeys security foundation"
  [protection]="protection roomkeys security foundation"
)

includes() { sed -nE 's|^ *# *include "([a-z]+)/.*|\1|p' "$1" | sort -u; }

check_direction() { # file, folders that it may include
  local folder
  for folder in $(includes "$1"); do
    [[ " $2 " == *" $folder "* ]] || fail "$1 includes $folder/"
  done
}

for folder in "${!allowed[@]}"; do
  while IFS= read -r file; do
    rule=${allowed[$folder]}
    if [[ $file == *.h && -n ${allowed_in_headers[$folder]:-} ]]; then rule=${allowed_in_headers[$folder]}; fi
    check_direction "$file" "$rule"
  done < <(find "$folder" -name '*.h' -o -name '*.cpp')
done

# Within security/: ber/ and x509/ know nothing of the classes above them, cms/ works for them, and only the sources of
# the public classes reach into all three.
check_security() { # file, folders and headers of security/ that it may include, as a regular expression
  local included
  for included in $(sed -nE 's|^ *# *include "security/([^"]+)".*|\1|p' "$1"); do
    [[ $included =~ ^($2)$ ]] || fail "$1 includes security/$included"
  done
}
base='(export|failure|openssl_handles|cmslimits)\.h'
while IFS= read -r file; do
  case $file in
    security/ber/*) check_security "$file" "$base|ber/.*" ;;
    security/x509/*) check_security "$file" "$base|x509/.*" ;;
    security/cms/*) check_security "$file" "[a-z_]+\.h|(ber|cms|x509)/.*" ;;
    *.h) check_security "$file" '[a-z_]+\.h' ;;
  esac
done < <(find security -name '*.h' -o -name '*.cpp')

# A third-party library and where it may be included.
check_engine() { # pattern, allowed files as a regular expression
  local file
  while IFS= read -r file; do
    [[ $file =~ $2 ]] || fail "$file includes $1"
  done < <(grep -rlE "^ *# *include <$1" --include='*.h' --include='*.cpp' \
    foundation security client exchange roomkeys protection transport bindings stand tools examples)
}
check_engine 'openssl/' '^(security/.*\.cpp|security/(openssl_handles|(ber|cms|x509)/[a-z_]+)\.h|transport/(tls_context|tls_files)\.cpp|stand/.*)$'
check_engine 'boost/' '^(foundation/json[a-z_]*|stand/http_connection)\.cpp$'
check_engine 'curl/' '^(transport/.*|examples/transport\.cpp)'
check_engine 'sqlite3' '^stand/.*'
check_engine 'CLI/' '^(tools|stand)/.*'

# Public headers compile alone and include no third-party library and no private header.
mapfile -t public_headers <cmake/public-headers.txt
is_public() { grep -qxF "$1" cmake/public-headers.txt; }

for header in "${public_headers[@]}"; do
  if grep -nE '^ *# *include <(openssl|boost|curl)/' "$header"; then fail "$header includes a third-party library"; fi
  while IFS= read -r included; do
    is_public "$included" || fail "$header includes $included, which is private"
  done < <(sed -nE 's|^ *# *include "([^"]+)".*|\1|p' "$header")
  echo "#include \"$header\"" | ${CXX:-g++} -std=c++20 -Wall -Wextra -I. -fsyntax-only -x c++ - 2>/dev/null ||
    fail "$header does not compile alone"
done

# The C header needs no other language and no later C++ than its users have.
c_header=bindings/c/include/cryptcli/cryptcli.h
for language in "c -std=c11" "c++ -std=c++11"; do
  read -ra options <<<"$language"
  ${CC:-gcc} "${options[1]}" -Wall -Wextra -Wpedantic -Werror -fsyntax-only -x "${options[0]}" "$c_header" ||
    fail "$c_header does not compile as ${options[0]}"
done

# File names, as docs/architecture.md has the rule.
while IFS= read -r file; do
  name=${file##*/}
  case $name in
    CMakeLists.txt | README.md) ;;
    *.h | *.hpp | *.c | *.cpp | *.py) [[ $name =~ ^[a-z0-9_]+\.[a-z]+$ ]] || fail "$file: words are joined by underscores" ;;
    *.sh | *.md) [[ $name =~ ^[a-z0-9-]+\.[a-z]+$ ]] || fail "$file: words are joined by hyphens" ;;
    *.cmake) [[ $name =~ ^([A-Z][A-Za-z]*|[a-z_]+)\.cmake$ ]] || fail "$file: not named as a module or a source" ;;
  esac
done < <(git ls-files)

if [ "$failures" -gt 0 ]; then echo "layout: $failures failures" >&2; exit 1; fi
echo "layout: clean"
