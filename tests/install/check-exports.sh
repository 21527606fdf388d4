#!/usr/bin/env bash
# Fails unless libcryptcli's dynamic symbol table holds the 23 members of its class and nothing else. The variants of one
# constructor or destructor count as one.
#   check-exports.sh LIBRARY
set -euo pipefail
members='CryptClient|~CryptClient|SetKeyServer|SetStatusTimeout|SetTransaction|GetCertAuth|GetErrorMessage'
members+='|PerformOperation|ExecuteMethod|GetMethod|GetKeyHandle|ConfigGroup|Reencrypt|ImportKey|DeleteKey'
members+='|CreateKey|UpdateKey|ExportKeys|GetAuditLog|Encrypt|Decrypt|Sign|SignHash'
exported=$(nm -D --defined-only "$1" | c++filt | cut -d' ' -f3- | sort -u)
strangers=$(grep -vE "^OruKalvix::CryptClient::($members)\(" <<<"$exported" || true)
count=$(grep -cE "^OruKalvix::CryptClient::($members)\(" <<<"$exported" || true)
if [ -n "$strangers" ]; then printf 'exported besides the members:\n%s\n' "$strangers" >&2; exit 1; fi
if [ "$count" -ne 23 ]; then printf '%s members are exported, not 23:\n%s\n' "$count" "$exported" >&2; exit 1; fi
echo "23 members are exported, and nothing else"
