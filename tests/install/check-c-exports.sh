#!/usr/bin/env bash
# Fails unless the library of the C interface exports exactly the functions that its header declares, each with a version
# node of its map.
#   check-c-exports.sh LIBRARY HEADER MAP
set -euo pipefail
declared=$(grep -oE '\bcryptcli_[a-z0-9_]+\(' <(sed -E 's|/\*.*\*/||; /^ \*/d' "$2" | grep -A 2 CRYPTCLI_API | grep -v define) |
  tr -d '(' | sort -u)
exported=$(nm -D --defined-only --with-symbol-versions "$1" | awk '$2 != "A" {print $3}' | sort -u)
mapped=$(sed -nE '/^CRYPTCLI_[0-9.]+ \{/,/^}/s/^ *(cryptcli_[a-z0-9_]+);.*/\1/p' "$3" | sort -u)
[ -n "$declared" ] || { echo "no function is declared in $2" >&2; exit 1; }
unversioned=$(grep -vE '@@CRYPTCLI_[0-9]+\.[0-9]+$' <<<"$exported" || true)
if [ -n "$unversioned" ]; then printf 'exported without a version:\n%s\n' "$unversioned" >&2; exit 1; fi
exported=$(sed 's/@@.*//' <<<"$exported")
diff <(echo "$declared") <(echo "$exported") >&2 || { echo "header (<) and exports (>) differ" >&2; exit 1; }
diff <(echo "$declared") <(echo "$mapped") >&2 || { echo "header (<) and map (>) differ" >&2; exit 1; }
echo "$(wc -l <<<"$exported") functions are exported, all declared and versioned, and nothing else"
