#!/bin/sh
# Creates the Debian package of the build and checks it as a distribution would: the programs
# must be hardened and report the package's version, and lintian must find no error.
#   check-package.sh BUILD-FOLDER VERSION        exit status 77: lintian is not installed
set -eu

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
failed=0
complain() {
    echo "$*"
    failed=1
}

(cd "$1" && cpack -G DEB -B "$scratch") >"$scratch/log" 2>&1 || { cat "$scratch/log"; exit 1; }
package=$(echo "$scratch"/*.deb)
root=$scratch/root
dpkg-deb -x "$package" "$root"

told() { # told PROGRAM EXPECTED: each program must report the package's version
    [ "$("$1" --version 2>&1)" = "$2 $(dpkg-deb -f "$package" Version)" ] ||
        complain "$2 --version: $("$1" --version 2>&1)"
}
[ "$(dpkg-deb -f "$package" Version)" = "$2" ] || complain "the package's version is not $2"
told "$root/usr/libexec/contents-mgr/contents-mgr" contents-mgr
told "$root/usr/bin/contentsctl" contentsctl

holds() { # holds PROGRAM WHAT PATTERN: searches readelf's output, in $elf
    echo "$elf" | grep -qE "$3" || complain "$1: no $2"
}
for program in "$root"/usr/bin/* "$root"/usr/libexec/contents-mgr/*; do
    readelf -h "$program" >/dev/null 2>&1 || continue  # a script
    elf=$(readelf -Whldn --dyn-syms "$program")
    name=$(basename "$program")
    holds "$name" "position-independent code" "Type: +DYN"
    holds "$name" "read-only relocations" GNU_RELRO
    holds "$name" "binding at the start" "BIND_NOW|FLAGS_1.*NOW"
    holds "$name" "stack protector" __stack_chk_fail
    holds "$name" "fortified calls" "__[a-z]+_chk"
    # The program's own mark is missing if the C library's start files lack it, as in Debian 12;
    # those contain a few such instructions at most.
    ! echo "$elf" | grep -q "Machine:.*X86-64" ||
        [ "$(objdump -d "$program" | grep -c endbr64)" -ge 50 ] ||
        complain "$name: no control-flow protection"
done

for page in man8/contents-mgr.8 man1/contentsctl.1; do
    gzip -t "$root/usr/share/man/$page.gz" || complain "no manual page $page"
done
[ $failed -eq 0 ] || exit 1
command -v lintian >/dev/null || exit 77
lintian --allow-root --fail-on error "$package"
