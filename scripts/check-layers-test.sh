#!/usr/bin/env bash
# Runs check-layers.sh on trees that each break a rule: it must reject every one of them.
set -uo pipefail
here=$(cd "$(dirname "$0")" && pwd)
tree=$(mktemp -d)
trap 'rm -rf "$tree"' EXIT
failed=0

# try EXPECTED FILE INCLUDE
try() {
    rm -rf "${tree:?}"/*
    mkdir -p "$tree/ContentsMgr/Src" "$tree/Platform/UsbDevice"
    echo '#include "PlatformLog.h"' >"$tree/ContentsMgr/Src/Own.h"
    echo '#include "Log/Log.h"' >"$tree/Platform/UsbDevice/Own.cpp"
    [ -z "$2" ] || echo "$3" >"$tree/$2"
    "$here/check-layers.sh" "$tree" 2>/dev/null
    [ $? -eq "$1" ] || { echo "check-layers-test: expected $1 for '$3' in '$2'" >&2; failed=1; }
}

try 0 '' ''
try 1 ContentsMgr/Src/Bad.cpp '#include <sqlite3.h>'
try 1 ContentsMgr/Src/Bad.cpp '#  include <gio/gio.h>'
try 1 ContentsMgr/Src/Bad.h '#include <libudev.h>'
try 1 ContentsMgr/Src/Bad.cpp '#include "MediaContent/MediaService.h"'
try 1 ContentsMgr/Src/Bad.cpp '#include "Stranger.h"'
try 1 Platform/UsbDevice/Bad.cpp '#include "../../ContentsMgr/Src/Own.h"'
exit $failed
