#!/usr/bin/env bash
# Demonstrates the main job: builds the service, creates two sticks and a camera, starts the
# process, and queries their contents, first with contentsctl, then with plain gdbus. Leaves nothing
# running.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh demo

build=build/demo
echo "demo: building (the first time takes a few minutes)"
log=$(mktemp)
if ! { cmake -S . -B $build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCM_TESTS=OFF >"$log" 2>&1 &&
    cmake --build $build >>"$log" 2>&1; }; then
    tail -40 "$log" >&2
    exit 1
fi
rm -f "$log"
PATH=$PWD/$build/bin:$PATH

# The plugin treats anything mounted below /opt/storage/usb as USB storage, wherever that text is in
# the path, so a folder of that name in a temporary directory works.
work=$(mktemp -d)
root=$work/opt/storage/usb
socket=unix:path=$work/socket
service=
monitor=
stop() {
    [ -z "$monitor" ] || kill "$monitor" 2>/dev/null || true
    [ -z "$service" ] || kill "$service" 2>/dev/null || true
    wait 2>/dev/null || true
    rm -rf "$work"
}
trap stop EXIT

title() { printf '\n== %s\n' "$1"; }
show() { # runs a command and shows it as a person would type it, with its output
    printf '$ %s\n' "${*//$work/}"
    "$@" | sed "s|$work||g"
}

mkdir -p "$root"
make-sample-media --photos "$root/HOLIDAY" 12
make-sample-media --small "$root/MIXED" 2>/dev/null
printf '[device]\nclass=6\nvendor=Lumen\nproduct=Pocket 7\nserial=P7-0042\nbus=2\naddress=9\n' >"$root/CAMERA.usb"

contents-mgr --address "$socket" --usb directory --usb-root "$root" --database "$work/media.db" \
    2>"$work/log" &
service=$!
export CONTENTS_MGR_ADDRESS=$socket
for _ in $(seq 100); do
    [ -S "$work/socket" ] && break
    kill -0 $service || { cat "$work/log" >&2; exit 1; }
    sleep 0.1
done

title "What is plugged in"
show contentsctl storages
title "Photos of one stick: how many, and all of them"
show contentsctl count HOLIDAY photo
show contentsctl query HOLIDAY photo
title "Music and videos of the other"
show contentsctl query MIXED music --limit 6
show contentsctl query MIXED video --limit 6
title "Folders as they are on disk, with the media in them"
show contentsctl browse HOLIDAY
title "A file that the scanner skips, added by hand and removed again"
cp "$root/HOLIDAY/IMG_0001.jpg" "$root/HOLIDAY/.hidden.jpg" 2>/dev/null ||
    cp "$(find "$root/HOLIDAY" -name '*.jpg' | head -1)" "$root/HOLIDAY/.hidden.jpg"
show contentsctl register "$root/HOLIDAY/.hidden.jpg" | tee "$work/registered"
show contentsctl count HOLIDAY photo
id=$(contentsctl --json register "$root/HOLIDAY/.hidden.jpg" | grep -o '"id":"[^"]*"' | head -1 | cut -d'"' -f4)
show contentsctl unregister "$id"
title "Unplugged and plugged in again: the events"
contentsctl monitor >"$work/events" 2>/dev/null &
monitor=$!
seen=0
fresh() { tail -n "+$((seen + 1))" "$work/events"; }
mark() { seen=$(wc -l <"$work/events"); }
waitfor() { # waitfor EVENT: waits until the monitor has shown it since the last mark
    for _ in $(seq 100); do
        fresh | grep -q "$1" && return
        sleep 0.1
    done
    echo "demo: no $1 came" >&2
    exit 1
}
# The monitor is listening once it reports a storage that comes or goes; until then, retry.
for _ in $(seq 100); do
    mkdir "$root/TRIAL" && sleep 0.2 && rmdir "$root/TRIAL" && sleep 0.2
    fresh | grep -q 'USB_DISCONNECTED.*TRIAL' && break
done
mark
mv "$root/MIXED" "$work/MIXED"
waitfor USB_DISCONNECTED
mv "$work/MIXED" "$root/MIXED"
waitfor SYNC_COMPLETED
fresh | sed "s|$work||g"
kill "$monitor" 2>/dev/null || true
wait "$monitor" 2>/dev/null || true
monitor=

title "The same with plain gdbus"
call() { gdbus call --address "$socket" --dest dorn.ContentsMgr --object-path /dorn/PlivHost --method "dorn.PlivHost1.$1" "${@:2}"; }
gdbus monitor --address "$socket" --dest dorn.ContentsMgr >"$work/events" &
monitor=$!
seen=0
handle=$(call OpenLasting demo | tr -dc 0-9)
echo "\$ gdbus call ... OpenLasting demo"
echo "($handle,)"
execute() { # execute COMMAND ARG...
    local words=("$@")
    printf '$ gdbus call ... Execute %s' "$handle"
    printf ' "%s"' "${words[@]//$work/}"
    echo
    while [ ${#words[@]} -lt 5 ]; do words+=(''); done
    call Execute "$handle" "${words[@]}" | sed "s|$work||g" | cut -c1-300
}
waitevent() {
    waitfor "$1"
    fresh | grep "$1" | tail -1 | sed "s|$work||g" | cut -c1-300
    mark
}
execute Connect
execute GetStorages
storage=$(contentsctl --json storages | grep -B0 HOLIDAY | grep -o '"id":"[^"]*"' | head -1 | cut -d'"' -f4)
execute Query "$storage" photo '' true
waitevent QUERY_COMPLETED
execute Fetch 0 2
waitevent FETCH_COMPLETED
execute Disconnect
call Close "$handle" >/dev/null
kill "$monitor" 2>/dev/null || true
monitor=

title "The end"
kill -TERM $service
status=0
wait $service || status=$?
service=
echo "contents-mgr ended with status $status"
exit $status
