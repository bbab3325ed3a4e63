"""A virtual machine and the sticks that are plugged into it: QEMU, its monitor, and a shell inside."""

import base64
import json
import os
import shutil
import socket
import subprocess
import tempfile
import time


class Failed(Exception):
    """Something in the machine is not as it must be."""


class Channel:
    """A line a message, over a unix socket that QEMU has made."""

    def __init__(self, path, timeout):
        end = time.monotonic() + 30
        while True:
            self.socket = socket.socket(socket.AF_UNIX)
            try:
                self.socket.connect(path)
                break
            except OSError:
                self.socket.close()
                if time.monotonic() > end:
                    raise
                time.sleep(0.05)
        self.socket.settimeout(timeout)
        self.lines = self.socket.makefile("r", encoding="utf-8")

    def send(self, text):
        self.socket.sendall(text.encode() + b"\n")

    def receive(self):
        line = self.lines.readline()
        if not line:
            raise Failed("the machine is gone")
        return line


class Machine:
    """A running machine. `disks` are attached as they are; what is written to the first is dropped.

    Emulated, not with KVM: where there is a nested one at all it may start and then not run.
    """

    def __init__(self, folder, disks, memory=768):
        self.work = tempfile.mkdtemp(prefix="vm-")
        monitor, agent = os.path.join(self.work, "qmp"), os.path.join(self.work, "agent")
        self.console = os.path.join(self.work, "console")
        arguments = [
            "qemu-system-x86_64", "-M", "q35", "-accel", "tcg,thread=multi",
            "-cpu", "max", "-smp", "2", "-m", str(memory), "-display", "none", "-nodefaults", "-nic", "none",
            "-kernel", f"{folder}/kernel", "-initrd", f"{folder}/initrd",
            "-append", "console=ttyS0 quiet panic=5 mitigations=off "
            "systemd.show_status=no systemd.mask=serial-getty@ttyS0.service systemd.mask=e2scrub_reap.service rw",
            "-serial", f"file:{self.console}", "-qmp", f"unix:{monitor},server=on,wait=off",
            "-device", "virtio-serial", "-chardev", f"socket,id=agent,path={agent},server=on,wait=off",
            "-device", "virtserialport,chardev=agent,name=agent", "-device", "virtio-rng-pci",
            "-device", "qemu-xhci,id=xhci,p2=8,p3=8",
        ]
        for number, disk in enumerate(disks):
            snapshot = "on" if number == 0 else "off"
            arguments += ["-drive", f"file={disk},if=virtio,format=raw,snapshot={snapshot},cache=unsafe"]
        self.process = subprocess.Popen(arguments, stderr=subprocess.PIPE)
        try:
            self.monitor = Channel(monitor, 60)
            self.monitor.receive()
            self.ask("qmp_capabilities")
            self.agent = Channel(agent, 300)
            self.run("true")
        except Exception:
            self.stop()
            raise

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.stop()

    def stop(self):
        self.process.kill()
        error = self.process.communicate()[1].decode().strip()
        if error:
            print(error)
        shutil.rmtree(self.work)

    def ask(self, command, **arguments):
        """A command of QEMU's monitor."""
        self.monitor.send(json.dumps({"execute": command, "arguments": arguments}))
        while True:
            answer = json.loads(self.monitor.receive())
            if "error" in answer:
                raise Failed(f"{command}: {answer['error']['desc']}")
            if "return" in answer:
                return answer["return"]

    def wait_event(self, name):
        """The monitor's next event of that name."""
        while json.loads(self.monitor.receive()).get("event") != name:
            pass

    def run(self, command, check=True):
        """What a command in the machine's shell prints; with `check` it must succeed."""
        self.agent.send(base64.b64encode(command.encode()).decode())
        status, _, output = self.agent.receive().strip().partition(" ")
        text = base64.b64decode(output).decode(errors="replace")
        if check and status != "0":
            raise Failed(f"{command}: status {status}: {text}")
        return text if check else (int(status), text)

    def until(self, what, command, seconds=120):
        """Runs a command until it succeeds; what it prints. The machine's seconds may be long."""
        end = time.monotonic() + seconds
        while True:
            status, text = self.run(command, check=False)
            if status == 0:
                return text
            if time.monotonic() > end:
                raise Failed(f"{what}: not within {seconds} s: {text}")
            time.sleep(0.1)

    def reboot(self):
        """Through systemd, with everything plugged in as it is."""
        self.run("systemctl --no-block reboot")
        self.wait_event("RESET")
        self.run("true")


class Stick:
    """One USB device, in or out. The image belongs to the caller."""

    count = 0
    inside = set()

    @classmethod
    def plugged(cls):
        return list(cls.inside)

    def __init__(self, machine, image, kind="usb-storage", port=None, serial=None, slow=0):
        """`slow`: bytes a second that it reads, 0 as fast as it can."""
        Stick.count += 1
        self.machine, self.image, self.kind, self.port = machine, image, kind, port
        self.name = f"stick{Stick.count}"
        self.serial = serial or f"SERIAL{Stick.count:04}"
        self.slow = slow

    def plug(self):
        ask = self.machine.ask
        ask("blockdev-add", **{"node-name": self.name, "driver": "raw",
                               "file": {"driver": "file", "filename": self.image}})
        node = self.name
        if self.slow:
            ask("object-add", **{"qom-type": "throttle-group", "id": f"{self.name}-limit",
                                 "limits": {"bps-total": self.slow}})
            node = f"{self.name}-slow"
            ask("blockdev-add", **{"node-name": node, "driver": "throttle", "file": self.name,
                                   "throttle-group": f"{self.name}-limit"})
        place = {"bus": "xhci.0"}
        if self.port:
            place["port"] = str(self.port)
        if self.kind == "usb-storage":
            ask("device_add", driver="usb-storage", id=self.name, drive=node, serial=self.serial, **place)
        else:
            ask("device_add", driver=self.kind, id=self.name, **place)
            ask("device_add", driver="scsi-hd", id=f"{self.name}-disk", bus=f"{self.name}.0", drive=node,
                serial=self.serial)
            ask("qom-set", path=f"/machine/peripheral/{self.name}", property="attached", value=True)
        self.inside.add(self)
        return self

    def pull(self):
        ask = self.machine.ask
        ask("device_del", id=self.name)
        self.inside.discard(self)
        end = time.monotonic() + 20
        while True:
            try:
                if self.slow:
                    ask("blockdev-del", **{"node-name": f"{self.name}-slow"})
                    ask("object-del", id=f"{self.name}-limit")
                ask("blockdev-del", **{"node-name": self.name})
                return self
            except Failed:
                if time.monotonic() > end:
                    raise
                time.sleep(0.02)
