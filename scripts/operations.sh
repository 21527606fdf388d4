#!/usr/bin/env bash
# Runs the examples of docs/named-operations.md in a local test environment and prints their results, with long base64
# strings shortened. Times, keys and signatures differ from run to run.
#   scripts/operations.sh [BUILD-FOLDER]     without one it makes a release build; PORT is that of the crypt service
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build/release}
if [ $# -eq 0 ]; then
  scripts/bootstrap.sh
  scripts/build.sh release cryptcli_command cryptstand
fi
port=${PORT:-7080}
service=http://127.0.0.1:$port/
servers="\"http://127.0.0.1:$((port + 1))\",\"http://127.0.0.1:$((port + 2))\",\"http://127.0.0.1:$((port + 3))\""
PATH=$(realpath "$build")/tools:$PATH

CRYPTSTAND=$build/stand/cryptstand
source stand/fixture/cryptstand.sh
trap cryptstand_stop EXIT
cryptstand_start --port "$port"
work=$CRYPTSTAND_FOLDER
mkdir "$work/here"
cd "$work/here"

shorten() { sed -E 's#([A-Za-z0-9+/]{24})[A-Za-z0-9+/]{40,}={0,2}#\1...#g'; }
# Runs a command and prints its command line, its output and its exit code.
show() {
  local word line='$'
  for word in "$@"; do
    case $word in *' '*) line+=" '$word'" ;; *) line+=" $word" ;; esac
  done
  printf '%s\n' "$line"
  local code=0
  "$@" >"$work/output" 2>&1 || code=$?
  shorten <"$work/output"
  if [ "$code" -ne 0 ]; then echo "(exit code $code)"; fi
}
# Performs an operation whose arguments have further members, one line each.
call() { # operation, member...
  local operation=$1
  shift
  printf '\n== %s\n' "$operation"
  {
    printf '{"keyserver":[%s],"statustimeout":"5"' "$servers"
    printf ',\n %s' "$@"
    echo '}'
  } >args.json
  echo '$ cat args.json'
  shorten <args.json
  show cryptcli call --service "$service" "$operation" --args args.json
}
member() { sed -nE "s/.*\"$1\":\"([^\"]*)\".*/\1/p" "$work/output"; }
certificate() { # name
  openssl req -x509 -newkey rsa:2048 -nodes -keyout "$1.key" -subj "/CN=$1" -days 30 2>/dev/null |
    openssl x509 -outform DER | base64 -w0
}

archive=$(certificate archive)
alice=$(certificate alice)
bob=$(certificate bob)
seal=$(openssl genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:2048 2>/dev/null |
  openssl pkcs8 -topk8 -v2 aes-256-cbc -passout pass:open-sesame -outform DER | base64 -w0)
printf 'Let it be known.\n' >charter.txt
hash=$(openssl dgst -sha512 -binary charter.txt | base64 -w0)

call ConfigGroup '"group":"QOB.1.200.1","groupname":"Finance","ownergroup":"QOB.1.100.1"' \
  "\"authnrootcerts\":[\"$archive\"],\"authnissuingcerts\":[]" \
  '"authncrlurls":["http://crl.example/finance"],"transaction":"t-1"'
call ConfigGroup '"group":"QOB.1.200.1","authnrootcerts":["no certificate"]'

call Reencrypt '"group":"QOB.1.100.1"' "\"enccert\":\"$archive\""
call Reencrypt '"group":"QOB.1.999.1"' "\"enccert\":\"$archive\""

call ImportKey '"group":"QOB.1.100.1","id":"seal"' "\"key\":\"$seal\",\"password\":\"open-sesame\""
call ImportKey '"group":"QOB.1.100.1","id":"seal"' "\"key\":\"$seal\",\"password\":\"guessed\""

algorithm='"algorithm":"RSASSA-PKCS1-v1_5-SHA-512"'
call SignByKey '"object":"demo","id":"seal","subid":"1"' "$algorithm" "\"hash\":\"$hash\""
call SignByKey '"object":"demo","key":{"type":"handle","id":"seal","subId":"1"}' "$algorithm" '"hash":"no base64!"'
printf '\n== sign\n'
show cryptcli sign --service "$service" --key-server "http://127.0.0.1:$((port + 1))" --object demo --key-id seal \
  charter.txt

call DeleteKey '"group":"QOB.1.100.1"' '"key":{"type":"handle","id":"seal","subId":"1"}'
call DeleteKey '"group":"QOB.1.100.1"' '"key":{"type":"handle","id":"seal","subId":"1"}'

call Encrypt '"room":"demo","seqnr":"1"' "\"certificates\":[\"$alice\"]"
wrapped=$(member newkey)
call Encrypt '"room":"demo","seqnr":"1"' '"certificates":["no certificate"]'

call Decrypt '"room":"demo","seqnr":"1"' "\"keys\":[{\"id\":\"a\",\"data\":\"$wrapped\"}]"
call Decrypt '"room":"demo","seqnr":"1"' '"keys":[{"id":"a","data":"no wrapped key"}]'

call Update '"room":"demo","seqnr":"2"' "\"certificates\":[\"$bob\"]" "\"keys\":[{\"id\":\"a\",\"data\":\"$wrapped\"}]" \
  '"newkey":true'
call Update '"room":"demo","seqnr":"2"' "\"certificates\":[\"$bob\"]" '"keys":[{"id":"a","data":"no wrapped key"}]'

call GetAuditLog '"group":"QOB.1.100.1","groupname":"Demo group"'
log=$(member filename)
show head -n 4 "$log"
rm -f "$log"
printf '\n== audit-log, with one key server down\n'
cryptstand_control POST /stand/v1/faults '{"server":1,"fault":"down"}' >"$work/fault"
show cryptcli audit-log --service "$service" --key-server "http://127.0.0.1:$((port + 1))" \
  --key-server "http://127.0.0.1:$((port + 2))" --group QOB.1.100.1 --output log.csv

call encrypt '"room":"demo"'
call SignByKey '"object":"demo","id":"seal","subId":"1"' "$algorithm" "\"hash\":\"$hash\""
printf '\n== arguments that are no object\n'
echo '["demo"]' >list.json
show cryptcli call --service "$service" Encrypt --args list.json
