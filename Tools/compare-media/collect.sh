#!/usr/bin/env bash
# Collects real media files out of Debian packages. Usage: collect.sh [--quick] CACHE
# Every package becomes the folder CACHE/packages/NAME; those already there stay as they are. Prints
# the folders. Exit status 77 when the packages cannot be fetched. The system's own apt state is
# left alone: lists and sources are copies in CACHE.
set -euo pipefail

# Test data in source packages, mostly: files that somebody kept because they are odd.
quick=(taglib golang-github-rwcarlsen-goexif libimage-size-perl libaudio-wma-perl libmp3-tag-perl
    libsdl2-image libopenmpt)
source=("${quick[@]}" exiv2 libimage-exiftool-perl gdk-pixbuf libheif libwebp openjpeg2 opusfile
    flac gst-plugins-bad1.0 pillow tiff kimageformats qtmultimedia-opensource-src sox
    golang-golang-x-image jhead imagemagick graphicsmagick freeimage quodlibet libaudio-scan-perl
    libmetadata-extractor-java libextractor exempi pytorch-vision lame chromaprint libgd2 pygame
    libxmp golang-github-disintegration-imaging libopenshot libsfml)
binary=(sound-theme-freedesktop heroes-sound-tracks heroes-sound-effects frozen-bubble-data
    pingus-data asc-music tecnoballz-data desktop-base criticalmass-data liquidwar-data
    amoebax-data)

kinds="deb deb-src"
if [ "${1:-}" = --quick ]; then
    source=("${quick[@]}") binary=() kinds=deb-src
    shift
fi
mkdir -p "$1/packages"
cache=$(cd "$1" && pwd)

missing=()
for name in "${source[@]}" "${binary[@]}"; do
    [ -d "$cache/packages/$name" ] || missing+=("$name")
done

work=$(mktemp -d "$cache/work.XXXXXX")
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/parts" "$cache/lists/partial"
apt=(apt-get -qq -o Dir::Etc::sourcelist=/dev/null -o "Dir::Etc::sourceparts=$work/parts"
    -o "Dir::State::lists=$cache/lists" -o "Dir::Cache=$work" -o Acquire::Languages=none
    -o APT::Sandbox::User= -o Acquire::Retries=2 -o APT::Update::Error-Mode=any)

# A machine's sources rarely list source packages, so a copy of them says "deb-src" too.
update_lists() {
    local file
    for file in /etc/apt/sources.list /etc/apt/sources.list.d/*.{list,sources}; do
        [ -f "$file" ] || continue
        sed -E "s/^Types:.*/Types: $kinds/; /^deb /{p; s/^deb /deb-src /}" "$file" \
            >"$work/parts/$(basename "$file")"
    done
    "${apt[@]}" update >&2
}

# Downloads one package to the current folder and unpacks it to ./files.
fetch() {
    mkdir files
    if [[ " ${binary[*]} " == *" $1 "* ]]; then
        "${apt[@]}" download "$1" >&2 && dpkg-deb -x ./*.deb files
    else
        "${apt[@]}" source --download-only --tar-only --only-source "$1" >&2 || return
        local archive
        for archive in *.tar.{gz,bz2,xz}; do
            [ ! -f "$archive" ] || tar -xf "$archive" -C files --no-same-owner
        done
    fi
}

# A game has thousands of pictures that are all alike: a hundred files of an extension are enough.
keep_variety() {
    local -A count=()
    local file key
    while IFS= read -r -d '' file; do
        key=x${file##*.}
        key=${key,,}
        count[$key]=$((${count[$key]:-0} + 1))
        [ "${count[$key]}" -le 100 ] || rm -f "$file"
    done < <(find "$1" -type f -name '*.*' -print0 | LC_ALL=C sort -z)
}

if [ ${#missing[@]} -gt 0 ] && ! update_lists; then
    echo "collect: cannot fetch the lists of packages: no network, or apt has no sources" >&2
    exit 77
fi
for name in "${missing[@]}"; do
    echo "collect: $name" >&2
    mkdir "$work/$name"
    cd "$work/$name"
    if fetch "$name"; then
        chmod -R u+rwX files
        keep_variety files
        # As a whole, so that a run that is interrupted leaves no half of one.
        mv files "$cache/packages/$name"
    else
        echo "collect: no $name: left out, and tried again next time" >&2
    fi
    cd "$cache"
    rm -rf "${work:?}/$name"
done

found=0
for name in "${source[@]}" "${binary[@]}"; do
    [ -d "$cache/packages/$name" ] || continue
    found=$((found + 1))
    printf '%s\n' "$cache/packages/$name"
done
if [ $found -eq 0 ]; then
    echo "collect: cannot fetch any of the packages" >&2
    exit 77
fi
