#!/bin/sh
# A client in plain shell: counts the photos of one storage and prints the paths of the newest ten.
# Usage: client.sh ADDRESS LABEL      for instance  client.sh unix:path=/run/contents-mgr/socket HOLIDAY
set -eu
address=$1 label=$2
target="--address $address --dest dorn.ContentsMgr --object-path /dorn/PlivHost"
work=$(mktemp -d)
listener= handle=
# shellcheck disable=SC2086  # the target is several words on purpose
call() { method=$1; shift; gdbus call $target --method "dorn.PlivHost1.$method" "$@"; }
execute() { call Execute "$handle" "$1" "${2-}" "${3-}" "${4-}" "${5-}"; }
fail() { echo "$*" >&2; exit 1; }
end() {
    [ -z "$handle" ] || call Close "$handle" >/dev/null || true
    [ -z "$listener" ] || kill "$listener" || true
    rm -rf "$work"
}
trap end EXIT
# Prints the payload of the first event of that name.
event() {
    for _ in $(seq 700); do
        sed -n "s/.*PlivHost1.Event ($handle, [01], '$1', '\(.*\)')\$/\1/p" "$work/events" | head -1 >"$work/found"
        [ ! -s "$work/found" ] || { cat "$work/found"; return; }
        sleep 0.1
    done
    fail "no $1 came"
}

# Every gdbus call is a connection of its own, so the handle has to last longer than that.
gdbus monitor --address "$address" --dest dorn.ContentsMgr >"$work/events" & listener=$!
until grep -q 'is owned by' "$work/events"; do sleep 0.1; done
handle=$(call OpenLasting client.sh | tr -dc 0-9)
execute Connect | grep -q "'1'" || fail "the service could not connect"

# {"storages":[{...,"id":"...",...,"partitionLabel":"..."},...]}: one storage a line, then its id.
storage=$(execute GetStorages | sed 's/},{/}\n{/g' | grep "\"partitionLabel\":\"$label\"" |
    sed 's/.*"id":"\([^"]*\)".*/\1/')
[ -n "$storage" ] || fail "no storage is labelled $label"
execute Query "$storage" photo '' true | grep -q "'1'" || fail "the query was refused"
count=$(event QUERY_COMPLETED | sed -n 's/.*"count":\([0-9]*\).*/\1/p')
echo "${count:-0} photos"
execute Fetch 0 10 >/dev/null
event FETCH_COMPLETED | grep -o '"fullPathName":"[^"]*"' | cut -d'"' -f4
