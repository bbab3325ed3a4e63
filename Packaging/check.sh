#!/bin/sh
# Installs the build below a scratch prefix and checks the units with systemd: they must verify
# without a warning, and the service's exposure must stay below 1.5 of 10.
#   check.sh BUILD-FOLDER        exit status 77: systemd-analyze is not installed
set -eu

command -v systemd-analyze >/dev/null || exit 77
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cmake --install "$1" --prefix "$scratch" >"$scratch/log" 2>&1 || { cat "$scratch/log"; exit 1; }

units=$scratch/lib/systemd/system
remarks=$(systemd-analyze verify --man=no "$units/contents-mgr.service" \
    "$units/contents-mgr-mount@sdb1.service" "$units/opt-storage-usb.mount" 2>&1 | grep contents-mgr || true)
if [ -n "$remarks" ]; then
    printf '%s\n' "$remarks"
    exit 1
fi
systemd-analyze security --offline=true --threshold=15 --no-pager "$units/contents-mgr.service" |
    tail -n 1
for script in "$(dirname "$0")"/debian/* "$(dirname "$0")/mount-stick"; do sh -n "$script"; done
