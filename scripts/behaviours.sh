#!/usr/bin/env bash
# Writes docs/behaviours.md: what the library promises, each line with the test that proves it. A line is the
# comment above the test where there is one, else the test's name in words.
#
#   scripts/behaviours.sh           writes the page
#   scripts/behaviours.sh --check   fails when the page does not say what the tests say
set -euo pipefail
export LC_ALL=C
cd "$(dirname "$0")/.."
page=docs/behaviours.md

folders="foundation:Values and services of the foundation
lifetime:Ends of threads and processes
security:Certificates, keys and CMS messages
client:The client object, the named operations and the frame of the library
exchange:Requests, tokens, the sweep over key servers and their commands
roomkeys:Room keys and integrity certificates
protection:Protecting, opening, verifying and signing
end_to_end:Whole operations over HTTP
transport:The transport on libcurl
tools:The command
stand:The stand
tampering:Protected files cut and changed
vectors:Vectors of others
interop:Other people's CMS software
faults:Failing memory, failing system calls, kills
fuzz:The harness of the fuzz targets
support:What the tests stand on"

list_tests() {  # prints: suite, name, comment, for each test of a file
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

in_words() {  # turns the second field into words unless the third has a text; prints table rows
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

write_folder() {
  local folder=$1 title=$2 file rows
  printf '\n## %s\n' "$title"
  while IFS= read -r file; do
    rows=$(list_tests "$file" | in_words)
    [ -n "$rows" ] || continue
    printf '\n### %s\n\n| Behaviour | Test |\n|---|---|\n%s\n' "${file#tests/}" "$rows"
  done < <(git ls-files "tests/$folder/*_test.cpp" | sort)
}

# A folder of tests that has no title would be left out without a word.
check_folders() {
  local folder
  for folder in $(git ls-files 'tests/*/*_test.cpp' | cut -d/ -f2 | sort -u); do
    grep -q "^$folder:" <<<"$folders" || { echo "behaviours: tests/$folder has no title" >&2; exit 1; }
  done
}

write_page() {
  printf '# Behaviours\n\nWritten by `scripts/behaviours.sh` from the tests: do not edit.\n'
  printf 'Run one with `ctest --preset release -R FOLDER` or its program with `--gtest_filter=NAME`.\n'
  while IFS=: read -r folder title; do
    if [ -n "$(git ls-files "tests/$folder/*_test.cpp")" ]; then write_folder "$folder" "$title"; fi
  done <<<"$folders"
}

check_folders
if [ "${1:-}" = --check ]; then
  if write_page | diff -q - "$page" >/dev/null; then exit 0; fi
  echo "$page is not what the tests say; run scripts/behaviours.sh" >&2
  exit 1
fi
write_page >"$page"
