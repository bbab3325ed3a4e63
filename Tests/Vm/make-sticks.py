#!/usr/bin/env python3
"""Makes the images of the sticks, in the machine, with the file systems' own tools and drivers.

  make-sticks.py FOLDER MAKE-SAMPLE-MEDIA    FOLDER has the machine's root; it gets sticks/
"""

import os
import shutil
import subprocess
import sys
import tempfile

from machine import Machine

MIB = 1 << 20

# Commands in the machine: $d is the image's device, `fill` copies the content to where it is mounted.
FILL = r"""
fill() { # fill TYPE DEVICE [CONTENT]
    mount -t "$1" "$2" /mnt && cp -r --no-preserve=ownership /media/${3:-content}/. /mnt/ && umount /mnt
}
parts() { sfdisk -q "$d" && udevadm settle; }
"""
STICKS = {
    "fat": (64, 'echo "1M,,c" | parts; mkfs.vfat -F 32 -s 1 -n HOLIDAY ${d}1; fill vfat ${d}1'),
    "plain": (64, "mkfs.vfat -F 32 -s 1 -n PLAIN $d; fill vfat $d"),
    "exfat": (48, 'echo "1M,,7" | parts; mkfs.exfat -L "Übersee" ${d}1; fill exfat ${d}1'),
    "ntfs": (48, 'echo "1M,,7" | parts; mkntfs -Q -q -L TRAVEL ${d}1; fill ntfs-3g ${d}1'),
    "ext4": (48, "mke2fs -q -t ext4 -L PHOTOS $d; fill ext4 $d"),
    "two": (96, 'printf "1M,64M,c\\n,,L\\n" | parts; mkfs.vfat -F 32 -s 1 -n FIRST ${d}1; '
                "mke2fs -q -t ext4 -L SECOND ${d}2; fill vfat ${d}1; fill ext4 ${d}2"),
    "many": (96, "mkfs.vfat -F 32 -s 1 -n MANY $d; fill vfat $d many"),
    "unknown": (16, 'echo "1M,,c" | parts'),
    "broken": (32, "mke2fs -q -t ext4 -L BROKEN $d"),
    "luks": (32, "echo secret | cryptsetup -q luksFormat --pbkdf pbkdf2 --pbkdf-force-iterations 1000 $d -"),
}


def make_content(folder, maker):
    """What lies on the sticks: photos and a song, in folders with names in three scripts."""
    content = os.path.join(folder, "content")
    subprocess.run([maker, "--photos", content, "6"], check=True, stdout=subprocess.DEVNULL)
    with tempfile.TemporaryDirectory() as small:
        subprocess.run([maker, "--small", small], check=True, stderr=subprocess.DEVNULL)
        song = os.path.join(small, "Music", "song.mp3")
        for place, name in ("Музыка", "песня.mp3"), ("写真", "歌.mp3"), ("صور", "أغنية.mp3"):
            os.makedirs(os.path.join(content, place))
            shutil.copy(song, os.path.join(content, place, name))
    shutil.copy(os.path.join(content, "IMG_0001.jpg"), os.path.join(content, "写真", "桜.jpg"))
    subprocess.run([maker, "--photos", os.path.join(folder, "many"), "600"], check=True,
                   stdout=subprocess.DEVNULL)


def main():
    folder, maker = sys.argv[1:]
    sticks = os.path.join(folder, "sticks.new")
    shutil.rmtree(sticks, ignore_errors=True)
    os.makedirs(sticks)
    with tempfile.TemporaryDirectory() as work:
        media = os.path.join(work, "media")
        os.makedirs(media)
        make_content(media, maker)
        disk = os.path.join(work, "media.img")
        subprocess.run(["mke2fs", "-q", "-t", "ext4", "-d", media, disk, "96M"], check=True)
        subprocess.run(["genisoimage", "-quiet", "-J", "-R", "-V", "DISC", "-o", f"{sticks}/iso.img",
                        os.path.join(media, "content")], check=True)
        images = []
        for name, (size, _) in STICKS.items():
            images.append(os.path.join(sticks, name + ".img"))
            with open(images[-1], "wb") as image:
                image.truncate(size * MIB)
        with Machine(folder, [f"{folder}/root.img", disk] + images) as machine:
            machine.run("mkdir -p /media && mount -o ro /dev/vdb /media")
            for number, (name, (_, commands)) in enumerate(STICKS.items()):
                device = "/dev/vd" + chr(ord("c") + number)
                machine.run(f"set -e; d={device}; {FILL} {commands}")
                print(f"made {name}")
            machine.run("sync")
    # A file system that is larger than its stick: recognised, and refused by the kernel.
    os.truncate(f"{sticks}/broken.img", 8 * MIB)
    # A twin of a stick: another device with the same UUID.
    shutil.copy(f"{sticks}/plain.img", f"{sticks}/twin.img")
    os.rename(sticks, os.path.join(folder, "sticks"))


main()
