# shellcheck shell=bash
# To be sourced: a work folder that is deleted when the script ends, and cryptstand running in it.
#
#   make_work                       creates the folder and sets work
#   start_stand BUILD [OPTION...]   returns once it responds; its URLs are in $work/urls.json, its output in
#                                   $work/stand.log
#   change METHOD RESOURCE [JSON]   sends a change to the control interface: change POST faults '{...}'
work=
stand=

make_work() {
  work=$(mktemp -d)
  trap leave EXIT
}

leave() {
  if [ -n "$stand" ]; then
    kill -TERM "$stand" 2>/dev/null || true
    wait "$stand" 2>/dev/null || true
  fi
  rm -rf "$work"
}

start_stand() {
  "$1/stand/cryptstand" --dir "$work/stand" --url-file "$work/urls.json" "${@:2}" >"$work/stand.log" 2>&1 &
  stand=$!
  for _ in $(seq 100); do
    if [ -s "$work/urls.json" ]; then return; fi
    kill -0 "$stand" 2>/dev/null || break
    sleep 0.1
  done
  cat "$work/stand.log" >&2
  exit 1
}

change() {
  local service token
  service=$(sed -nE 's/.*"service" *: *"([^"]*)".*/\1/p' "$work/urls.json" | tr -d '\\')
  token=$(sed -nE 's/.*"token" *: *"([^"]*)".*/\1/p' "$work/urls.json")
  curl -sSf -X "$1" -H "Authorization: Bearer $token" -d "${3:-}" "${service%/}/stand/v1/$2" >/dev/null
}
