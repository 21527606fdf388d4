#!/usr/bin/env bash
# Lists what the tests prove: writes build/behaviours.md, one row for each test. A row says the behaviour in words: the
# one-line comment above the test where there is one, else the name of the test taken apart.
#
#   scripts/behaviours.sh           writes the page and prints its path
#   scripts/behaviours.sh --check   writes nothing and fails when a test would be lost or mistaken for another:
#                                     a folder of tests has no title below;
#                                     a test source is in no CMakeLists.txt of its folder, so that nobody builds it;
#                                     a test source has no row, or a test in it has none;
#                                     a source that is not named *_test.cpp has tests;
#                                     two tests of one folder have the same name, or two fixtures have.
set -euo pipefail
export LC_ALL=C
cd "$(dirname "$0")/.."
page=build/behaviours.md

folders="foundation:Values and services of the foundation
lifetime:Ends of threads and processes
security:Certificates, keys and CMS messages
client:The client object, the named operations and the module
exchange:Requests, tokens, failover between key servers, commands
roomkeys:Room keys and integrity certificates
protection:Encrypting, decrypting, verifying and signing files
end_to_end:Whole operations over HTTP
transport:The transport on libcurl
bindings/c:The C interface
bindings/cpp:The C++ interface
examples:The examples
tools:The command
stand:The local test environment
stand_fixture:The local test environment in tests of others, and replay
install:Consumers of the installed package
tampering:Protected files cut and changed
vectors:Published test vectors
interop:Other CMS software
faults:Failing allocations, failing system calls, kills
fuzz:The support code of the fuzz targets
support:The support code of the tests"

list_tests() { # file; prints suite, name and comment of each test
  awk '
    function flush_comment() { comment = ""; lines = 0 }
    /^\/\/\/? / { text = $0; sub(/^\/\/\/? */, "", text); comment = (lines++ ? comment " " : "") text; next }
    /^(TEST|TEST_F|TEST_P|TYPED_TEST)\(/ {
      head = $0
      while (head !~ /\)/ && (getline more) > 0) { sub(/^ +/, "", more); head = head more }
      sub(/^[A-Z_]+\(/, "", head); sub(/\).*/, "", head)
      split(head, part, /, */)
      print part[1] "\t" part[2] "\t" (lines == 1 ? comment : "")
    }
    { flush_comment() }' "$1"
}

in_words() { # turns the second field into words unless the third has a comment; prints table rows
  awk -F '\t' '
    function is_upper(c) { return c ~ /[A-Z]/ }
    function words(name,   i, c, before, after, word, text) {
      text = ""; word = ""
      for (i = 1; i <= length(name) + 1; ++i) {
        c = substr(name, i, 1); before = substr(name, i - 1, 1); after = substr(name, i + 1, 1)
        if (i > 1 && (c == "" || c == "_" || (is_upper(c) && (!is_upper(before) || after ~ /[a-z]/)) ||
                      (c ~ /[0-9]/ && before ~ /[a-z]/))) {
          if (word !~ /^[A-Z0-9][A-Z0-9]+$/ && text != "") word = tolower(word)
          text = text (text == "" ? "" : " ") word; word = ""
        }
        if (c != "_") word = word c
      }
      return text
    }
    { text = $3 != "" ? $3 : words($2); gsub(/\|/, "\\|", text); print "| " text " | `" $1 "." $2 "` |" }'
}

sources_of() { find "tests/$1" -name '*_test.cpp' | sort; } # folder

write_folder() { # folder, title
  local file
  printf '\n## %s\n' "$2"
  while IFS= read -r file; do
    printf '\n### %s\n\n| Behaviour | Test |\n|---|---|\n' "${file#tests/}"
    list_tests "$file" | in_words
  done < <(sources_of "$1")
}

write_page() {
  local folder title
  printf '# Behaviours\n\nWritten by `scripts/behaviours.sh` from the tests.\n'
  printf 'Run one with the test program of its folder and `--gtest_filter=NAME`.\n'
  while IFS=: read -r folder title; do
    write_folder "$folder" "$title"
  done <<<"$folders"
}

failures=0
fail() { echo "behaviours: $*" >&2; failures=$((failures + 1)); }

folder_of() { # reads paths of tests; each language has a folder of its own below bindings/
  sed -E 's|^tests/(bindings/[a-z]+\|[a-z_]+)/.*|\1|'
}

check_folders() { # a folder without a title would be left out of the page
  local folder
  for folder in $(find tests -name '*_test.cpp' | folder_of | sort -u); do
    grep -q "^$folder:" <<<"$folders" || fail "tests/$folder has no title in this script"
  done
}

check_sources() { # a test that is not built, or not listed
  local file folder macros rows
  while IFS= read -r file; do
    # Counted in another way than it is listed: with any indentation.
    macros=$(grep -cE '^[[:space:]]*(TYPED_)?TEST(_F|_P)?[[:space:]]*\(' "$file" || true)
    if [[ $file != *_test.cpp ]]; then
      if [ "$macros" -gt 0 ]; then fail "$file has tests and is not named *_test.cpp"; fi
      continue
    fi
    folder=$(folder_of <<<"$file")
    grep -rqE --include=CMakeLists.txt "(^|[ /(])$(basename "$file")([ )]|\$)" "tests/$folder" ||
      fail "$file is in no CMakeLists.txt below tests/$folder"
    rows=$(list_tests "$file" | wc -l)
    if [ "$rows" -eq 0 ]; then fail "$file has no test"; continue; fi
    [ "$rows" -eq "$macros" ] || fail "$file has $macros tests, $rows of them in the list"
  done < <(find tests -name '*.cpp' | sort)
}

list_names() { # folder; prints each test as SUITE.NAME and each class that is a fixture, once for each definition
  sources_of "$1" | while IFS= read -r file; do list_tests "$file"; done | awk -F '\t' '{ print $1 "." $2 }'
  find "tests/$1" \( -name '*.h' -o -name '*.cpp' \) -exec awk '
    /^ *(class|struct|using) [A-Za-z0-9]+( final)? *([:{=]|$)/ { definitions[++count] = $2 }
    /^TEST_[FP]\(/ { suite = $0; sub(/^[A-Z_]+\(/, "", suite); sub(/,.*/, "", suite); is_suite[suite] = 1 }
    END { for (i = 1; i <= count; ++i) if (definitions[i] in is_suite) print definitions[i] }' {} +
}

check_names() { # a report names a test by its suite and its own name alone
  local folder name
  while IFS=: read -r folder _; do
    while IFS= read -r name; do
      fail "tests/$folder has the name $name twice"
    done < <(list_names "$folder" | sort | uniq -d)
  done <<<"$folders"
}

if [ "${1:-}" = --check ]; then
  check_folders
  check_sources
  check_names
  if [ "$failures" -gt 0 ]; then echo "behaviours: $failures failures" >&2; exit 1; fi
  echo "behaviours: every test is built, listed and has a name of its own"
  exit 0
fi
check_folders
[ "$failures" -eq 0 ] || exit 1
mkdir -p build
write_page >"$page"
echo "$PWD/$page"
