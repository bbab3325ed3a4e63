#!/usr/bin/env python3
"""Plugs sticks into a machine with the package installed, and checks what its clients see.

  checks.py FOLDER OLD.deb NEW.deb DATABASE [PATTERN]

FOLDER has the machine and sticks/; OLD.deb is installed first and upgraded to NEW.deb, DATABASE is
a database file of the schema before. Prints a line a check; the last is 'N passed, N failed'.
"""

import json
import os
import random
import re
import shlex
import shutil
import subprocess
import sys
import tempfile
import time

from machine import Failed, Machine, Stick

CTL = "contentsctl -b system --json"
ROOT = "/opt/storage/usb"
HELPERS = "pgrep -f '^[^ ]*contents-mgr-extract'"
PHOTOS, SONGS, MANY = 8, 3, 601
#        stick    label       its kind   mounted as          text
KINDS = [("fat", "HOLIDAY", "vfat", "VFAT"), ("plain", "PLAIN", "vfat", "VFAT"),
         ("exfat", "Übersee", "exfat", "VFAT"), ("ntfs", "TRAVEL", "ntfs", "NTFS"),
         ("ext4", "PHOTOS", "ext4", "EXT4"), ("iso", "DISC", "iso9660", "UNKNOWN")]


def expect(what, is_so, seen=""):
    if not is_so:
        raise Failed(f"{what} {seen}".strip())


class Device:
    """The machine as its clients see it."""

    def __init__(self, machine, folder, work):
        self.machine, self.work = machine, work
        self.run, self.until = machine.run, machine.until
        self.seen = 0
        for image in os.listdir(f"{folder}/sticks"):
            subprocess.run(["cp", "--sparse=always", f"{folder}/sticks/{image}", work], check=True)

    def stick(self, name, **how):
        return Stick(self.machine, f"{self.work}/{name}.img", **how)

    def storages(self):
        lines = self.run(f"{CTL} storages").splitlines()
        return {s["partitionLabel"] or s["name"]: s for s in map(json.loads, lines)}

    def count(self, storage, kind="photo"):
        command = f"{CTL} count {shlex.quote(storage)} {kind}"
        # The service waits a minute for a scan, which may be too short for an emulated machine.
        for _ in range(5):
            status, text = self.run(command, check=False)
            if status == 0 or "still being scanned" not in text:
                break
        expect(command, status == 0, text)
        return int(json.loads(text)["count"])

    def ids(self, storage):
        items = map(json.loads, self.run(f"{CTL} query {shlex.quote(storage)} photo").splitlines())
        return {item["filename"]: item["id"] for item in items}

    def appears(self, label):
        """Waits until a stick is listed; what it is listed with."""
        return self.appear([label])[label]

    def appear(self, labels):
        end = time.monotonic() + 120
        while True:
            storages = self.storages()
            if all(label in storages for label in labels):
                return storages
            expect(f"{labels} are listed", time.monotonic() < end, list(storages))
            time.sleep(0.2)

    def nothing_left(self):
        """After the last stick: no storage, mount, folder, failed unit or helper."""
        self.until("no mount", f"! findmnt -rn -o TARGET | grep {ROOT}/")
        self.until("no folder", f"[ -z \"$(ls -A {ROOT})\" ]")
        self.until("no storage", f"[ -z \"$({CTL} storages)\" ]")
        self.until("no helper", f"! {HELPERS}")
        failed = self.run("systemctl --failed --no-legend --plain | while read -r unit _; do "
                          "systemctl show -p Id,Result,ExecStart,ExecStopPost $unit; done")
        expect("no failed unit", not failed, failed)

    # What a client hears: `monitor --json` has run since the installation.
    def mark(self):
        self.seen = int(self.run("wc -l </run/events"))

    def events(self):
        lines = self.run(f"tail -n +{self.seen + 1} /run/events").splitlines()
        return [json.loads(line) for line in lines if line.endswith("}")]

    def names(self):
        return [event["name"] for event in self.events()]

    def hears(self, *wanted, seconds=120):
        """Waits for events, in that order; others may lie between."""
        end = time.monotonic() + seconds
        while True:
            names = iter(self.names())
            if all(want in names for want in wanted):
                return
            expect(f"events {wanted} within {seconds} s", time.monotonic() < end, self.names())
            time.sleep(0.2)

    def journal(self, since, *options):
        return self.run(f"journalctl -q --no-pager -o cat --since={since} {' '.join(options)}").splitlines()

    # Not a cursor: behind one journalctl passes over the first line that its other options select.
    def now(self):
        return self.run("date +@%s.%6N").strip()

    def process(self):
        """Restarts, descriptors, KiB of its own, of the service."""
        text = self.run("pid=$(systemctl show -P MainPID contents-mgr); systemctl show -P NRestarts contents-mgr; "
                        "ls /proc/$pid/fd | wc -l; awk '/^RssAnon:/ {print $2}' /proc/$pid/status")
        return [int(number) for number in text.split()]


UNITS = ["-u", "contents-mgr.service", "-u", "'contents-mgr-mount@*'"]


def is_offered(device, name, label, kind, text):
    storage = device.appears(label)
    expect("file system", storage["fileSystem"] == text, storage["fileSystem"])
    size = os.path.getsize(f"{device.work}/{name}.img") // 1024
    total, free = int(storage["totalSize"]), int(storage["availableSize"])
    lost = 0.2 * size + 2048
    expect("size", size - lost <= total <= size and 0 <= free < total, (total, free, size))
    mounted = device.run(f"findmnt -rn -o FSTYPE,OPTIONS {storage['mountPath'].replace('$USB_DIR', ROOT)}")
    kinds = {"ntfs": ("ntfs3", "fuseblk")}.get(kind, (kind,))
    expect("mounted as judged", mounted.split()[0] in kinds, mounted)
    options = mounted.split()[1].split(",")
    expect("mount options", {"ro", "nosuid", "nodev", "noexec"} <= set(options), mounted)
    expect("photos", device.count(label) == PHOTOS, device.count(label))
    expect("songs", device.count(label, "music") == SONGS, device.count(label, "music"))
    names = device.run(f"{CTL} browse {shlex.quote(label)}")
    names = {json.loads(line).get("name") for line in names.splitlines()}
    # The kernel's ISO 9660 gives its entries no type; a page has only what has one.
    folders = set() if kind == "iso9660" else {"Музыка", "写真", "صور"}
    expect("folders in three scripts", folders <= names, names)
    below = device.run(f"{CTL} browse {shlex.quote(label)}/写真")
    below = {json.loads(line).get("name") for line in below.splitlines()}
    expect("a folder's files", below == {"桜.jpg", "歌.mp3"}, below)
    return storage


def kind_of_stick(name, label, kind, text):
    def check(device):
        device.mark()
        stick = device.stick(name).plug()
        storage = is_offered(device, name, label, kind, text)
        ids = device.ids(label)
        stick.pull()
        device.hears("USB_CONNECTED", "SYNC_COMPLETED", "USB_DISCONNECTED")
        gone = [e for e in device.events() if e["name"] == "USB_DISCONNECTED"][-1]["payload"]["storage"]
        expect("sizes of what has gone", (gone["totalSize"], gone["availableSize"]) == ("0", "0"), gone)
        expect("its id", gone["id"] == storage["id"] != "", gone)
        device.nothing_left()
        since = device.now()
        stick.plug()
        expect("the same storage", device.appears(label)["id"] == storage["id"])
        expect("the same items", device.ids(label) == ids)
        done = [line for line in device.journal(since, *UNITS) if "is complete" in line]
        expect("nothing is read again", any(" 0 of them read" in line for line in done), done)
        stick.pull()
        device.nothing_left()
    return check


def two_partitions(device):
    stick = device.stick("two").plug()
    storages = device.appear(["FIRST", "SECOND"])
    expect("two ids", storages["FIRST"]["id"] != storages["SECOND"]["id"])
    expect("photos", [device.count("FIRST"), device.count("SECOND")] == [PHOTOS, PHOTOS])
    stick.pull()
    device.nothing_left()


def twins(device):
    """Two sticks with one UUID, as copies of an image are: both are offered, each with its own."""
    sticks = [device.stick("plain").plug(), device.stick("twin").plug()]
    device.until("two storages", f"[ $({CTL} storages | wc -l) = 2 ]")
    storages = [json.loads(line) for line in device.run(f"{CTL} storages").splitlines()]
    for storage in storages:
        expect("photos", device.count(storage["mountPath"]) == PHOTOS, storage)
    sticks[0].pull()
    device.until("one storage", f"[ $({CTL} storages | wc -l) = 1 ]")
    expect("photos of the other", device.count("PLAIN") == PHOTOS)
    sticks[1].pull()
    device.nothing_left()


def bridges(device):
    """A hard disk behind a bridge, by both protocols."""
    for kind in "usb-bot", "usb-uas":
        disk = device.stick("ext4", kind=kind).plug()
        is_offered(device, "ext4", "PHOTOS", "ext4", "EXT4")
        disk.pull()
        device.nothing_left()


def card_reader(device):
    """The kernel's own mass storage gadget behind its dummy controller: a reader with a slot."""
    card = "/run/card.img"
    device.run("set -e; modprobe dummy_hcd; modprobe libcomposite; mountpoint -q /sys/kernel/config || "
               "mount -t configfs none /sys/kernel/config; cd /sys/kernel/config/usb_gadget; mkdir reader; cd reader; "
               "echo 0x1d6b >idVendor; echo 0x0104 >idProduct; mkdir strings/0x409 configs/c.1; "
               "echo READER01 >strings/0x409/serialnumber; echo Reader >strings/0x409/product; "
               "mkdir functions/mass_storage.0; echo 1 >functions/mass_storage.0/lun.0/removable; "
               "ln -s functions/mass_storage.0 configs/c.1; ls /sys/class/udc >UDC; "
               f"truncate -s 8M {card}; mkfs.vfat -n CARD {card} >/dev/null")
    lun = "/sys/kernel/config/usb_gadget/reader/functions/mass_storage.0/lun.0"
    device.until("the reader", "lsblk -dno TRAN | grep -q usb")
    since = device.now()
    device.run("udevadm settle; sleep 3")
    device.nothing_left()
    expect("no line for an empty slot", not device.journal(since, *UNITS), device.journal(since, *UNITS))
    for _ in range(2):
        device.run(f"echo {card} >{lun}/file")
        device.appears("CARD")
        device.run(f"echo 1 >{lun}/forced_eject")
        device.nothing_left()
    device.run("cd /sys/kernel/config/usb_gadget/reader && echo >UDC; sleep 1")


def not_for_us(device):
    """Nothing to be had: no storage, one clear line, no failed unit."""
    for name, word in ("unknown", "no known file system"), ("broken", "ext4"), ("luks", "encrypted"):
        since = device.now()
        stick = device.stick(name).plug()
        device.until(name, f"journalctl -q -o cat --since={since} {' '.join(UNITS)} | "
                           "grep 'not mounted'")
        device.run("udevadm settle; sleep 1")
        lines = device.journal(since, "-p", "warning", *UNITS)
        expect("one line", len(lines) == 1 and word in lines[0], lines)
        expect("no storage", not device.storages())
        stick.pull()
        device.nothing_left()


def camera(device):
    device.mark()
    folder = os.path.join(device.work, "camera")
    os.makedirs(folder)
    device.machine.ask("device_add", driver="usb-mtp", id="camera", rootdir=folder, bus="xhci.0", serial="CAM1")
    device.hears("USB_CONNECTED")
    storage, = device.storages().values()
    expect("a camera", storage["type"] == "ptp" and storage["deviceBus"] != "0", storage)
    device.machine.ask("device_del", id="camera")
    device.hears("USB_CONNECTED", "USB_DISCONNECTED")
    device.nothing_left()


def visit_in_the_journal(device):
    """What one stick's visit writes, with a client listening."""
    since = device.now()
    stick = device.stick("fat").plug()
    device.mark()
    device.appears("HOLIDAY")
    device.hears("SYNC_COMPLETED")
    stick.pull()
    device.nothing_left()
    lines = device.journal(since, *UNITS)
    print("\n".join("    | " + line for line in lines))
    expect("less than 20 lines", 3 < len(lines) < 20, len(lines))
    expect("no second time stamp", not any(re.match(r"\d{4}-\d\d-\d\d", line) for line in lines))


def pulled_in_mid_scan(device):
    device.mark()
    stick = device.stick("many", slow=100000).plug()
    label = "MANY"
    storage = device.appears(label)
    device.until("helpers at work", HELPERS)
    stick.pull()
    device.hears("USB_CONNECTED", "SYNC_FAILED")
    device.hears("USB_CONNECTED", "USB_DISCONNECTED")
    device.nothing_left()
    # At once again, and the rest of it.
    fast = device.stick("many", serial=stick.serial).plug()
    expect("the same storage", device.appears(label)["id"] == storage["id"])
    expect("complete", device.count(label) == MANY, device.count(label))
    fast.pull()
    device.nothing_left()


def pulled_in_mid_query(device):
    stick = device.stick("many").plug()
    device.appears("MANY")
    device.count("MANY")
    device.run(f"(timeout 60 {CTL} query MANY photo >/run/page 2>&1; echo $? >/run/page.status) >/dev/null 2>&1 &")
    device.until("the query", "[ -e /run/page ]")
    stick.pull()
    device.until("the client's end", "[ -s /run/page.status ]")
    device.nothing_left()
    # In and out while idle, and again at once, without a pause.
    device.mark()
    for _ in range(3):
        stick.plug()
        stick.pull()
    stick.plug()
    device.appears("MANY")
    expect("complete", device.count("MANY") == MANY)
    stick.pull()
    device.nothing_left()
    names = [name for name in device.names() if name.startswith("USB_")]
    expect("each that came has gone", names == ["USB_CONNECTED", "USB_DISCONNECTED"] * (len(names) // 2), names)


def plugs_and_pulls(device):
    """100 of four sticks, at random, with a client at work; then all is right, and nothing has grown."""
    chance = random.Random(14)
    sticks = [device.stick(name) for name in ("fat", "exfat", "ext4", "many")]
    labels = ["HOLIDAY", "Übersee", "PHOTOS", "MANY"]

    def all_in():
        for which in range(4):
            if not inside[which]:
                sticks[which].plug()
                inside[which] = True
        device.appear(labels)
        counts = [device.count(label) for label in labels]
        expect("counts", counts == [PHOTOS] * 3 + [MANY], counts)

    def all_out():
        for which in range(4):
            sticks[which].pull()
            inside[which] = False
        device.nothing_left()
        return device.process()

    inside = [False] * 4
    all_in()
    before = all_out()
    device.run("(while [ ! -e /run/enough ]; do for s in HOLIDAY PHOTOS MANY; do "
               f"timeout 30 {CTL} --no-wait query $s photo --limit 100; {CTL} storages; done; done) >/dev/null 2>&1 &")
    for _ in range(100):
        which = chance.randrange(4)
        if inside[which]:
            sticks[which].pull()
        else:
            sticks[which].plug()
        inside[which] = not inside[which]
        time.sleep(chance.choice((0, 0.05, 0.3, 1)))
    device.run("touch /run/enough")
    device.until("the client's end", "! pgrep -f no-wai[t]")
    all_in()
    after = all_out()
    print(f"    | restarts, descriptors, KiB: {before} -> {after}")
    expect("no restart", after[0] == before[0])
    # Each reading connection that is kept has two of the database's files open: at most three more.
    expect("descriptors", after[1] <= before[1] + 6, (before, after))
    expect("memory", after[2] <= before[2] + 8192, (before, after))


def starts_with_sticks_in(device, new):
    """Restart, upgrade and reboot with sticks in: they are there again, with the same ids."""
    sticks = [device.stick("fat").plug(), device.stick("ext4").plug()]
    device.appear(["HOLIDAY", "PHOTOS"])
    ids = device.ids("HOLIDAY")
    for line in device.run("contentsctl -b system storages").splitlines():
        print(f"    | {line}")

    def is_as_before(what):
        device.appear(["HOLIDAY", "PHOTOS"])
        expect(f"{what}: ids", device.ids("HOLIDAY") == ids)
        expect(f"{what}: photos", device.count("PHOTOS") == PHOTOS)
        print(f"    | after {what}: as before")

    device.run("systemctl restart contents-mgr")
    is_as_before("restart")
    device.run("systemctl stop contents-mgr; systemctl start contents-mgr")
    is_as_before("start")
    device.run(f"apt-get install -y -qq {new} >/run/upgrade 2>&1 || {{ cat /run/upgrade; false; }}")
    version = device.run("dpkg-query -W -f='${Version}' contents-mgr")
    expect("upgraded", version in new, version)
    is_as_before("upgrade")
    device.machine.reboot()
    device.run("mkdir -p /pkg && mount -o ro /dev/vdb /pkg")
    device.until("the service", "systemctl is-active contents-mgr", 300)
    is_as_before("reboot")
    for stick in sticks:
        stick.pull()
    device.nothing_left()
    listen(device)


def rights(device):
    call = ("gdbus call --system --dest dorn.ContentsMgr --object-path /dorn/PlivHost "
            "--method dorn.PlivHost1.Open test")
    device.run("useradd -M stranger; useradd -M -G contents-mgr friend")
    status, text = device.run(f"setpriv --reuid=stranger --regid=stranger --clear-groups {call}", check=False)
    expect("a stranger is refused by the bus", status != 0 and "AccessDenied" in text, text)
    device.run(f"setpriv --reuid=friend --regid=friend --init-groups {call}")


def removal(device):
    stick = device.stick("fat").plug()
    device.appears("HOLIDAY")
    device.run("DEBIAN_FRONTEND=noninteractive apt-get purge -y -qq contents-mgr >/run/purge 2>&1 || { cat /run/purge; false; }")
    left = device.run(f"findmnt -rn -o TARGET | grep /opt/storage; ls -d {ROOT} /var/lib/contents-mgr 2>/dev/null; "
                      "getent passwd contents-mgr; systemctl --failed --no-legend --plain; true")
    expect("nothing is left", not left, left)
    stick.pull()


def listen(device):
    """A client that hears everything, as long as the service lives."""
    device.run("systemctl stop listener 2>/dev/null; systemctl reset-failed listener 2>/dev/null; "
               "rm -f /run/events; "
               f"systemd-run -q -u listener -p StandardOutput=append:/run/events {CTL} monitor")
    device.until("the listener", "[ -e /run/events ]")
    device.seen = 0


def install(device, old, database):
    device.run("mkdir -p /pkg && mount -o ro /dev/vdb /pkg")
    device.run(f"install -d -m 700 /var/lib/contents-mgr && cp /pkg/{database} /var/lib/contents-mgr/media.db")
    device.run(f"apt-get install -y -qq {old} >/run/install 2>&1 || {{ cat /run/install; false; }}")
    device.until("the service", "systemctl is-active contents-mgr")
    device.nothing_left()
    moved = device.run("journalctl -q -o cat -u contents-mgr | grep -i 'moved aside'", check=False)[1]
    expect("no database is moved aside", not moved, moved)
    listen(device)


def main():
    folder, old, new, database = sys.argv[1:5]
    pattern = sys.argv[5] if len(sys.argv) > 5 else ""
    old_name, new_name = ("/pkg/" + os.path.basename(path) for path in (old, new))
    checks = [("the package installs, and takes over the database of the schema before",
               lambda d: install(d, old_name, os.path.basename(database)))]
    checks += [(f"a stick with {kind} ({name})", kind_of_stick(name, label, kind, text)) for name, label, kind, text in KINDS]
    checks += [("two partitions on one stick", two_partitions), ("two sticks with one UUID", twins),
               ("hard disks behind bridges, bulk-only and UAS", bridges), ("a card reader without a card, and with one", card_reader),
               ("unknown, broken and encrypted file systems", not_for_us), ("a camera", camera),
               ("the journal of one visit", visit_in_the_journal),
               ("pulled out in mid-scan, and in again", pulled_in_mid_scan),
               ("pulled out in mid-query and again at once", pulled_in_mid_query),
               ("100 plugs and pulls of four sticks", plugs_and_pulls),
               ("restart, start, upgrade, reboot with sticks in", lambda d: starts_with_sticks_in(d, new_name)),
               ("who may call", rights), ("removal with a stick in", removal)]
    passed = failed = 0
    work = tempfile.mkdtemp(prefix="vm-")
    try:
        packages = os.path.join(work, "packages")
        os.makedirs(packages)
        for path in old, new, database:
            shutil.copy(path, packages)
        subprocess.run(["mke2fs", "-q", "-t", "ext4", "-d", packages, f"{work}/packages.disk", "64M"], check=True)
        with Machine(folder, [f"{folder}/root.img", f"{work}/packages.disk"]) as machine:
            device = Device(machine, folder, work)
            for name, check in checks:
                if pattern and check is not checks[0][1] and not re.search(pattern, name):
                    continue
                begin = time.monotonic()
                try:
                    check(device)
                    passed += 1
                    print(f"pass  {name} ({time.monotonic() - begin:.0f} s)", flush=True)
                except (Failed, ValueError, LookupError) as error:
                    failed += 1
                    print(f"FAIL  {name}: {type(error).__name__}: {error}", flush=True)
                    print(device.run("journalctl -q --no-pager -n 400 | grep -v CONTENTS_MANAGER_PLIV | tail -15", check=False)[1], flush=True)
                    for stick in Stick.plugged():
                        stick.pull()
    finally:
        shutil.rmtree(work)
    print(f"{passed} passed, {failed} failed")
    return failed != 0


sys.exit(main())
