#!/usr/bin/env bash
# Fails when a function of the product is unused, even by its tests.
set -euo pipefail
cd "$(dirname "$0")/.."

# Functions named by the interface, or overriding what a library calls.
given='GetAddedTime|GetThumbnailPath|GetRating|GetMusicCopyright|GetMusicBitrate|GetMusicDuration'
given+='|GetVideoDuration|GetVideoWidth|GetVideoHeight|GetDeviceName|GetVendorID|GetDiskType'
given+='|PrintInformation|Deinit|StopSync|GetSyncState|m_GetStorageInfo|ThreadID'
libraries='ExivReader|TagLibReader|MessageStream'

unused=$(cppcheck --enable=unusedFunction --quiet --std=c++17 --library=googletest \
    ContentsMgr Platform Tools Tests Benchmarks Fuzz 2>&1 | grep '\[unusedFunction\]' |
    grep -vE "^Tests/|/($libraries)\.cpp:|'($given)'" || true)
[ -z "$unused" ] || {
    echo "$unused" >&2
    exit 1
}
