#!/usr/bin/env bash
# Makes the disk of the test machine: Debian with its stock kernel, and what a package depends on.
#   make-root.sh FOLDER PACKAGE...     FOLDER gets root.img, kernel, initrd
# Runs as root. The kernel is unpacked, not installed: an initramfs for every machine there is would
# take longer than all the rest.
set -euo pipefail

folder=$1
shift
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
suite=bookworm

# What the machine needs, what makes the sticks in it, and the package's dependencies.
packages=(systemd systemd-sysv udev dbus kmod mount util-linux apt procps libglib2.0-bin
    dosfstools exfatprogs ntfs-3g e2fsprogs cryptsetup-bin fdisk "$@")
printf -v list '%s,' "${packages[@]}"
mmdebstrap --quiet --variant=minbase --dpkgopt=force-unsafe-io --include="${list%,}" \
    --dpkgopt='path-exclude=/usr/share/doc/*' --dpkgopt='path-exclude=/usr/share/locale/*' \
    --dpkgopt='path-exclude=/usr/share/man/*' "$suite" "$work/root" >&2

kernel=$(apt-cache depends linux-image-amd64 | sed -n 's/ *Depends: //p')
mkdir "$work/kernel"
(cd "$work/kernel" && apt-get -qq -o APT::Sandbox::User=root download "$kernel" && dpkg-deb -x ./*.deb .)
version=${kernel#linux-image-}
modules=lib/modules/$version
for part in drivers/{usb,scsi,virtio,block,cdrom,md,hid} drivers/char block mm fs/{fat,exfat,ntfs3,isofs,udf,ext4,jbd2,fuse,nls} \
    fs/mbcache.ko fs/configfs lib crypto arch/x86/crypto drivers/net/net_failover.ko; do
    [ -e "$work/kernel/$modules/kernel/$part" ] || continue
    mkdir -p "$work/root/usr/$modules/kernel/$(dirname "$part")"
    cp -r "$work/kernel/$modules/kernel/$part" "$work/root/usr/$modules/kernel/$part"
done
cp "$work/kernel/$modules"/modules.{builtin,builtin.modinfo,order} "$work/root/usr/$modules/"
chroot "$work/root" depmod "$version"

# The harness speaks with a shell behind a port (agent.sh); nothing waits for hardware or network.
install -m 755 "$here/agent.sh" "$work/root/usr/local/sbin/vm-agent"
cat >"$work/root/etc/systemd/system/vm-agent.service" <<'UNIT'
[Unit]
Description=Commands of the test
After=systemd-udevd.service
[Service]
ExecStart=/usr/local/sbin/vm-agent
Restart=always
[Install]
WantedBy=multi-user.target
UNIT
chroot "$work/root" systemctl -q enable vm-agent.service
chroot "$work/root" systemctl -q mask systemd-timesyncd.service apt-daily.timer apt-daily-upgrade.timer \
    dpkg-db-backup.timer e2scrub_all.timer fstrim.timer getty@tty1.service
echo 'vm' >"$work/root/etc/hostname"
echo '/dev/vda / ext4 rw 0 1' >"$work/root/etc/fstab"

# An initramfs of what the root's disk needs, and nothing else.
ram=$work/ram
mkdir -p "$ram"/{bin,dev,proc,sys,root,modules}
cp /bin/busybox "$ram/bin/busybox"
ln -s busybox "$ram/bin/sh"
for module in virtio_pci virtio_blk crc32c_generic ext4; do
    chroot "$work/root" modprobe -S "$version" --show-depends "$module" | sed -n 's/^insmod \([^ ]*\).*/\1/p'
done | awk '!seen[$0]++' >"$work/needed"
while read -r module; do
    cp "$work/root$module" "$ram/modules/"
    basename "$module" >>"$ram/modules/order"
done <"$work/needed"
cat >"$ram/init" <<'INIT'
#!/bin/sh
b=/bin/busybox
$b mount -t devtmpfs dev /dev
while read -r module; do $b insmod /modules/$module; done </modules/order
until $b mount -t ext4 -o rw /dev/vda /root 2>/dev/null; do $b usleep 20000; done
exec $b switch_root /root /sbin/init
INIT
chmod +x "$ram/init"
(cd "$ram" && find . | cpio --quiet -o -H newc | gzip -1) >"$folder/initrd"
cp "$work/kernel/boot/vmlinuz-$version" "$folder/kernel"
echo "$version" >"$folder/kernel-version"
rm -f "$folder/root.img"
mke2fs -q -t ext4 -O ^has_journal -d "$work/root" "$folder/root.img" 1400M
