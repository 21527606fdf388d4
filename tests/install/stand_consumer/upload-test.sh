# shellcheck shell=sh
# What a project writes to test its own scripts with the installed local test environment: upload-test.sh PREFIX
set -eu
# shellcheck source=/dev/null
. "$1/share/cryptcli/cryptstand.sh"
trap cryptstand_stop EXIT

fail() {
  echo "$*" >&2
  exit 1
}

cryptstand_start --key-servers 1 --room mine
folder=$CRYPTSTAND_FOLDER
echo "some bytes" >"$folder/plain"
cryptcli encrypt --service "$CRYPTSTAND_SERVICE" --room mine "$folder/plain" "$folder/secret"
cryptcli decrypt --service "$CRYPTSTAND_SERVICE" --room mine "$folder/secret" "$folder/opened"
cmp "$folder/plain" "$folder/opened"
cryptstand_control POST /stand/v1/faults '{"server":"0","fault":"down"}' >"$folder/reply"
if cryptcli decrypt --service "$CRYPTSTAND_SERVICE" --room mine "$folder/secret" "$folder/again" 2>"$folder/errors"; then
  fail "it opens without a key server"
fi
cryptstand_control DELETE /stand/v1/faults >"$folder/reply"
cryptcli decrypt --service "$CRYPTSTAND_SERVICE" --room mine "$folder/secret" "$folder/again"
if cryptstand_control POST /stand/v1/faults '{"servr":"0"}' >"$folder/reply" 2>"$folder/errors"; then
  fail "a wrong member is accepted"
fi
grep -q servr "$folder/reply" || fail "the wrong member is not named: $(cat "$folder/reply")"
cryptstand_stop
[ ! -e "$folder" ] || fail "the folder stays"
cryptstand_stop || fail "it cannot be stopped twice"

if (cryptstand_start --no-such-option) 2>"$1/errors"; then fail "it starts with an option that it does not have"; fi
grep -q -e --no-such-option "$1/errors" || fail "the reason is not on standard error"

# The status of what came before the start does not end the script.
if ! sh -c 'set -e; . "$1/share/cryptcli/cryptstand.sh"; trap cryptstand_stop EXIT; false || cryptstand_start; [ -n "$CRYPTSTAND_SERVICE" ]' \
  sh "$1"; then
  fail "it does not start after a command that failed"
fi

cryptstand_start --key-servers 1 --tls --client-ca make
cryptstand_control GET /stand/v1/faults >"$CRYPTSTAND_FOLDER/reply" || fail "the control interface needs more with TLS"
echo "some bytes" >"$CRYPTSTAND_FOLDER/plain"
cryptcli encrypt --service "$CRYPTSTAND_SERVICE" --room demo --ca-file "$CRYPTSTAND_CA_FILE" \
  --client-cert "$CRYPTSTAND_CLIENT_CERTIFICATE" --client-key "$CRYPTSTAND_CLIENT_KEY" \
  "$CRYPTSTAND_FOLDER/plain" "$CRYPTSTAND_FOLDER/secret"
cryptstand_stop
[ -z "$CRYPTSTAND_CA_FILE$CRYPTSTAND_CLIENT_CERTIFICATE$CRYPTSTAND_CLIENT_KEY" ] || fail "the variables stay"

# A trap keeps the exit code, and what a script started ends with it.
code=0
sh -c '. "$1/share/cryptcli/cryptstand.sh"; trap cryptstand_stop EXIT; cryptstand_start; echo "$cryptstand_process"; exit 7' \
  sh "$1" >"$1/process" || code=$?
[ "$code" -eq 7 ] || fail "the script ends with $code"
if kill -0 "$(cat "$1/process")" 2>/dev/null; then fail "the program goes on"; fi
