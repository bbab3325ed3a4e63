#!/usr/bin/env bash
# Compares what the service reads from media files with what exiftool and ffprobe say about them.
# Usage: compare-media.sh [DIR | --quick]
# Without DIR it collects real media out of Debian packages first, 283 MB, and keeps them in
# ${XDG_CACHE_HOME:-~/.cache}/contents-mgr-media; with --quick only a few of them.
# Exit status: 0 less than 1 value in 1,000 differs and less than 1 media file in 100 is not listed,
# 1 more, 2 wrong usage, 77 the packages cannot be fetched. COMPARE_BIN names another folder of
# programs than the one that this script builds.
set -euo pipefail
usage() {
    echo "Usage: compare-media.sh [DIR | --quick]" >&2
    exit 2
}
[ $# -le 1 ] || usage
dir=
case "${1:-}" in
'' | --quick) ;;
-*) usage ;;
*)
    [ -d "$1" ] || usage
    dir=$(cd "$1" && pwd)
    ;;
esac
cd "$(dirname "$0")/.."
tools=Tools/compare-media
scripts/setup.sh compare

bin=${COMPARE_BIN:-}
if [ -z "$bin" ]; then
    build=build/dev
    if [ ! -f $build/build.ninja ]; then  # as the demonstration does, without what tests need
        build=build/demo
        cmake -S . -B $build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCM_TESTS=OFF >/dev/null
    fi
    echo "compare: building (the first time takes a few minutes)"
    cmake --build $build --target contents-mgr contents-mgr-extract contentsctl >/dev/null
    bin=$build/bin
fi

work=$(mktemp -d)
service=
stop() {
    [ -z "$service" ] || kill "$service" 2>/dev/null || true
    wait 2>/dev/null || true
    rm -rf "$work"
}
trap stop EXIT

# The service takes the folders below its root for sticks, but no links: it gets a copy.
media=$work/opt/storage/usb/media
mkdir -p "$media"
answers=
if [ -n "$dir" ]; then
    cp -a --reflink=auto "$dir/." "$media/"
else
    cache=${XDG_CACHE_HOME:-$HOME/.cache}/contents-mgr-media
    $tools/collect.sh ${1:+"$1"} "$cache" >"$work/packages"
    xargs -r -d '\n' cp -a --reflink=auto -t "$media" <"$work/packages"
    answers=$cache/answers${1:-}.json
    # What a test suite has damaged on purpose says nothing of what people have.
    find "$media" -type f -regextype posix-extended -iregex \
        '.*(fuzz|poc|crash|cve-|/fail/|randomly-modified|corrupt|invalid|decompression_bomb|/bmp/b/|zero[_-]height|garbage|longloop|infloop|bug775218).*' -delete
fi

socket=unix:path=$work/socket
"$bin/contents-mgr" --address "$socket" --usb directory --usb-root "$work/opt/storage/usb" \
    --database "$work/media.db" 2>"$work/log" &
service=$!
for _ in $(seq 100); do
    [ -S "$work/socket" ] && break
    kill -0 $service || { cat "$work/log" >&2; exit 1; }
    sleep 0.1
done
"$bin/contentsctl" --address "$socket" --timeout 0 query media photo --limit 1 >/dev/null
kill -TERM $service
wait $service
service=

PYTHONDONTWRITEBYTECODE=1 python3 $tools/compare.py "$media" "$work/media.db" \
    $tools/explained.txt ${answers:+"$answers"}
