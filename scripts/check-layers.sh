#!/usr/bin/env bash
# Checks the layers: of the platform the plugin includes only the seam's headers, and no header of
# the libraries below the seam; the platform includes nothing of the plugin.
# Usage: check-layers.sh [FOLDER]   (the checkout by default; the script's test passes another one)
set -uo pipefail
cd "${1:-$(dirname "$0")/..}" || exit 2

failed=0
# refuse FOLDER PATTERN WHY: fails if a file below FOLDER has a matching include.
refuse() {
    local found
    found=$(grep -rnE "^[[:space:]]*#[[:space:]]*include[[:space:]]*[<\"]$2" "$1" \
        --include='*.h' --include='*.cpp') || return 0
    echo "check-layers: $3" >&2
    echo "$found" >&2
    failed=1
}

seam='PlatformLog|PlivHost|MediaContent|UsbDevice'
own=$(cd ContentsMgr/Src && find . -name '*.h' -printf '%f\n' | sed 's/\.h$//' | paste -sd'|')

refuse ContentsMgr '(sqlite3|libudev|gio/|glib-unix|exiv2/|taglib/|libav|umockdev)' \
    "the plugin includes a library that only the platform may use"
refuse ContentsMgr '([.][.]/)*(Platform/|Log/|PlivHost/|MediaContent/|UsbDevice/)' \
    "the plugin reaches into the platform's folders"
refuse Platform '([.][.]/)*ContentsMgr/' "the platform reaches into the plugin's folders"

# Everything that the plugin includes in quotes must be its own header or the seam's.
strangers=$(grep -rnE '^[[:space:]]*#[[:space:]]*include[[:space:]]*"' ContentsMgr \
    --include='*.h' --include='*.cpp' | grep -vE "\"($own|$seam)\.h\"")
if [ -n "$strangers" ]; then
    echo "check-layers: these headers are neither the plugin's nor the seam's" >&2
    echo "$strangers" >&2
    failed=1
fi
exit $failed
