#!/usr/bin/env bash
# Installs missing Debian packages and nothing else. Usage: setup.sh [demo|test|vm|compare]
# "demo" is what building and demonstrating the service needs, "test" (the default) adds the tests'
# packages, "vm" those of the virtual machine, "compare" the programs that we compare ours with.
set -euo pipefail

packages=(
    g++ cmake ninja-build ccache pkg-config
    libglib2.0-dev libglib2.0-bin libjsoncpp-dev libboost-dev libsqlite3-dev libudev-dev
    libexiv2-dev libtag1-dev libavformat-dev libavcodec-dev libavutil-dev libseccomp-dev
    libexpat1-dev libjxl-dev
    ffmpeg exiv2 libheif-examples help2man
)
if [ "${1:-test}" = test ]; then
    packages+=(libgtest-dev libgmock-dev libbenchmark-dev libumockdev-dev umockdev clang-format
        clang libclang-rt-14-dev python3 clang-tidy cppcheck dbus dbus-daemon systemd e2fsprogs mount
        lintian binutils bash-completion)
elif [ "$1" = vm ]; then
    packages+=(qemu-system-x86 mmdebstrap busybox-static cpio e2fsprogs kmod genisoimage python3)
elif [ "$1" = compare ]; then
    packages+=(libimage-exiftool-perl python3 bzip2 xz-utils)
fi

missing=()
for package in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' ||
        missing+=("$package")
done
[ ${#missing[@]} -gt 0 ] || exit 0

sudo=()
if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || {
        echo "setup: missing packages: ${missing[*]}" >&2
        echo "setup: run this as root, or install sudo, or install them yourself" >&2
        exit 1
    }
    sudo=(sudo)
fi
echo "setup: installing ${missing[*]}"
"${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get update -qq
"${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends \
    "${missing[@]}" >/dev/null
