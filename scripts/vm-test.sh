#!/usr/bin/env bash
# Tests the package on a real kernel: builds it, boots Debian with its stock kernel in a virtual
# machine, installs the package there, and plugs USB sticks in and out. Prints one line per check and
# ends with 'N passed, N failed'. Everything is emulated: no KVM, no network, no device of this host.
# Usage: vm-test.sh [PATTERN]    only the checks whose names match; exit status 77: no QEMU here
set -euo pipefail
cd "$(dirname "$0")/.."
if ! scripts/setup.sh vm; then
    echo "vm-test: SKIPPED: QEMU and what makes its disks cannot be installed here" >&2
    exit 77
fi
PATH=$PATH:/usr/sbin:/sbin  # where a user's does not look: mke2fs and its like
sudo=()
[ "$(id -u)" -eq 0 ] || sudo=(sudo)

build=build/vm
log=$(mktemp)
trap 'rm -f "$log"' EXIT
rm -f $build/*.deb
# The same package in two versions: the one to upgrade from, and the one to upgrade to.
if ! { cmake -S . -B $build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCM_TESTS=OFF &&
    cmake --build $build && cd $build && cpack -G DEB && new=$(ls ./*.deb) &&
    cpack -G DEB -D CPACK_PACKAGE_VERSION=0.0.1; } >"$log" 2>&1; then
    tail -40 "$log" >&2
    exit 1
fi
new=$(ls ./*.deb | grep -v '_0\.0\.1')
old=$(ls ./*.deb | grep '_0\.0\.1')
cd - >/dev/null

# The package's dependencies, without versions and alternatives.
mapfile -t depends < <(dpkg-deb -f "$build/$new" Depends | tr ',' '\n' | sed 's/|.*//; s/(.*//; s/ //g')

apt-cache show linux-image-amd64 >/dev/null 2>&1 || "${sudo[@]}" apt-get update -qq
# Kept between runs and clones. The machine is rebuilt when its ingredients or its kernel change.
key=$({ cat Tests/Vm/make-root.sh Tests/Vm/agent.sh; echo "${depends[@]}"; apt-cache depends linux-image-amd64; } |
    sha256sum | cut -c1-16)
cache=${XDG_CACHE_HOME:-$HOME/.cache}/contents-mgr-vm
machine=$cache/$key
if [ ! -e "$machine/root.img" ]; then
    echo "vm-test: making the machine's root (kept in $cache)"
    rm -rf "$cache"
    mkdir -p "$machine.new"
    if ! "${sudo[@]}" Tests/Vm/make-root.sh "$machine.new" "${depends[@]}" >"$log" 2>&1; then
        tail -40 "$log" >&2
        exit 1
    fi
    "${sudo[@]}" chown -R "$(id -u):$(id -g)" "$machine.new"
    mv "$machine.new" "$machine"
fi
sticks=$(sha256sum Tests/Vm/make-sticks.py | cut -c1-16)
if [ ! -e "$machine/sticks/$sticks" ]; then
    echo "vm-test: making the sticks"
    rm -rf "$machine/sticks"
    if ! python3 Tests/Vm/make-sticks.py "$machine" "$build/bin/make-sample-media" >"$log" 2>&1; then
        tail -40 "$log" >&2
        exit 1
    fi
    touch "$machine/sticks/$sticks"
fi

echo "vm-test: Debian with $(cat "$machine/kernel-version"), ${new#./}"
python3 -u Tests/Vm/checks.py "$machine" "$build/$old" "$build/$new" \
    Tests/Platform/Media/version-1.db "${1:-}"
