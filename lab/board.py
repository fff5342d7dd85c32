"""One machine of QEMU: disk, console, commands inside, adapters that are plugged in and pulled out, an end by force."""

import base64
import contextlib
import json
import os
import pathlib
import selectors
import signal
import socket
import subprocess
import time

MEMORY = 512  # MiB, as a small board has
# Whatever ends the program that runs the cases: no machine and no reader stays behind.
ENDS_WITH_US = ["setpriv", "--pdeathsig", "KILL"]


SLOWEST_BOOT = 60  # seconds; under emulation half a minute is usual, and three times as long allowed
patience = 1  # so many times longer may everything take


class BoardError(Exception):
    """What the machine did not do, in one line."""


class Unusable(BoardError):
    """There is no machine to look at, or one that is too slow: says nothing about what was to be looked at."""


def deadline(seconds):
    """When something that may take so long has to be done."""
    return time.monotonic() + seconds * patience


def wait_for(condition, seconds, what):
    """The first true answer of `condition`, asked again and again; an error when it takes longer."""
    end = deadline(seconds)
    while True:
        began = time.monotonic()
        answer = condition()
        now = time.monotonic()
        if answer:
            return answer
        if now > end:
            raise BoardError(f"after {seconds * patience:.0f} s still not so: {what}")
        # A board that is asked all the time has no time for what it is asked about: its clock stands nearly still meanwhile.
        time.sleep(min(max(0.02, 3 * (now - began)), 2))


class Lines:
    """A socket of QEMU, read line by line, each line with the time it came."""

    def __init__(self, path):
        self.socket = socket.socket(socket.AF_UNIX)
        wait_for(lambda: self._connected(path), 30, f"{path.name} can be reached")
        self.rest = b""
        self.waiting = []

    def _connected(self, path):
        try:
            self.socket.connect(str(path))
            return True
        except (FileNotFoundError, ConnectionRefusedError):
            return False

    def send(self, text):
        self.socket.sendall(text.encode() + b"\n")

    def take(self, seconds):
        """What has come, as (time, line); an empty list when nothing does in so many seconds."""
        with selectors.DefaultSelector() as selector:
            selector.register(self.socket, selectors.EVENT_READ)
            if not selector.select(max(seconds, 0)):
                return []
        data = self.socket.recv(1 << 16)
        if not data:
            raise Unusable("the machine has ended")
        *whole, self.rest = (self.rest + data).split(b"\n")
        now = time.monotonic()
        return [(now, line.decode(errors="replace")) for line in whole]

    def next(self, end, what):
        """The next line, if it comes until then."""
        while not self.waiting:
            if time.monotonic() > end:
                raise BoardError(f"nothing came in time: {what}")
            self.waiting += self.take(end - time.monotonic())
        return self.waiting.pop(0)[1]


class Board:
    """Made for one case; its files are in a directory of that case's own."""

    def __init__(self, place, kernel, initrd, disk, things, accelerator):
        self.place, self.kernel, self.initrd, self.disk, self.things = place, kernel, initrd, disk, things
        self.accelerator = accelerator
        self.console = place / "console.log"
        self.console.unlink(missing_ok=True)
        self.process = self.agent = self.monitor = self.stream = None
        self.commands = 0
        self.boot_seconds = 0.0

    # Beginning and end

    def start(self, write_log=None, rtc=None, extra=()):
        """Boots, and is back when commands can be given. With a log every write is noted there, with its flushes."""
        for name in ("monitor", "agent", "stream"):
            (self.place / name).unlink(missing_ok=True)
        began = time.monotonic()
        with open(self.place / "qemu.log", "ab") as errors:
            self.process = subprocess.Popen(ENDS_WITH_US + self._command(write_log, rtc) + list(extra), stdin=subprocess.DEVNULL,
                                            stdout=errors, stderr=errors, cwd=self.place)
        try:
            self.monitor = Lines(self.place / "monitor")
            self.agent = Lines(self.place / "agent")
            self.stream = Lines(self.place / "stream")
        except BoardError as error:
            raise Unusable(f"QEMU did not start: {(self.place / 'qemu.log').read_text()[-300:]}") from error
        self.monitor.next(deadline(30), "QEMU's greeting")
        self.ask("qmp_capabilities")
        self._boot(began)

    def _boot(self, began):
        """The first boot, with nothing of ours in it yet, tells whether this machine is one to look at anything."""
        first = not self.boot_seconds
        try:
            self.wait_until_up(SLOWEST_BOOT if first else 600)
        except BoardError as error:
            if first:
                raise Unusable(f"this machine is too slow, or too busy: {error}") from error
            raise
        self.boot_seconds = time.monotonic() - began

    def _command(self, write_log, rtc):
        command = ["qemu-system-x86_64", "-nodefaults", "-no-user-config", "-display", "none", "-M", "q35", "-cpu", "max",
                   "-m", str(MEMORY), "-smp", "1", "-nic", "none", "-kernel", str(self.kernel), "-initrd", str(self.initrd),
                   "-append", "root=/dev/vda rw console=ttyS0 quiet panic=-1 mitigations=off nokaslr random.trust_cpu=on",
                   "-chardev", f"file,id=console,path={self.console},append=on", "-serial", "chardev:console",
                   "-qmp", "unix:monitor,server=on,wait=off",
                   "-device", "virtio-serial-pci", "-device", "qemu-xhci,id=usb"]
        command += ["-accel", self.accelerator]
        if self.accelerator == "tcg":
            # A nanosecond for an instruction. Its time is then that of a small board, not of an emulator that waits for a
            # processor.
            command += ["-icount", "shift=0"]
        for port in ("agent", "stream"):
            command += ["-chardev", f"socket,id={port},path={port},server=on,wait=off",
                        "-device", f"virtserialport,chardev={port},name={port}"]
        # Nothing is forced onto the disk of this machine: what a power cut takes is decided by the log, not by it.
        command += ["-blockdev", f"driver=file,node-name=root,filename={self.disk},cache.no-flush=on"]
        if write_log:
            command += ["-blockdev", f"driver=file,node-name=log,filename={write_log},cache.no-flush=on",
                        "-blockdev", "driver=blklogwrites,node-name=logged,file=root,log=log,log-sector-size=512"]
        command += ["-device", f"virtio-blk-pci,drive={'logged' if write_log else 'root'}"]
        if self.things:
            command += ["-blockdev", f"driver=file,node-name=things,filename={self.things},read-only=on",
                        "-device", "virtio-blk-pci,drive=things"]
        return command + (["-rtc", f"base={rtc}"] if rtc else [])

    def wait_until_up(self, seconds=600):
        """Waits for the agent, which says so at each boot."""
        end = deadline(seconds)
        while self.agent.next(end, "the machine has booted") != "ready":
            pass

    def reboot(self):
        """A reboot in order."""
        self._once_answered("systemctl reboot")
        self.wait_until_up()

    def cut(self):
        """The power is gone: at once, with whatever the machine was doing."""
        self.process.kill()
        self.process.wait()

    @contextlib.contextmanager
    def frozen(self):
        """It stands still, in the middle of whatever it was doing: what is outside is what a power cut would leave."""
        self.process.send_signal(signal.SIGSTOP)
        wait_for(self._stands_still, 30, "the machine stands still")
        try:
            yield
        finally:
            self.process.send_signal(signal.SIGCONT)

    def _stands_still(self):
        threads = pathlib.Path(f"/proc/{self.process.pid}/task").glob("*/stat")
        return all(thread.read_text().rpartition(")")[2].split()[0] == "T" for thread in threads)

    @property
    def running(self):
        return self.process is not None and self.process.poll() is None

    def stop(self):
        """Ends it, in whatever state it is."""
        if self.running:
            self.cut()
        for lines in (self.agent, self.monitor, self.stream):
            if lines:
                lines.socket.close()

    def power_off(self):
        """An end in order."""
        self._once_answered("systemctl poweroff")
        self.process.wait(timeout=300)

    def _once_answered(self, command):
        """Runs what would end the agent before it could answer."""
        self.run(f"setsid sh -c 'sleep 0.5; {command}' >/dev/null 2>&1 &")

    # Commands inside

    def attempt(self, script, seconds=120):
        """Runs a script of bash as root. Returns its status and what it printed."""
        self.commands += 1
        self.agent.send(f"{self.commands} {base64.b64encode(script.encode()).decode()}")
        end = deadline(seconds)
        while True:
            number, status, output = (self.agent.next(end, script[:100]) + "  ").split(" ")[:3]
            if number == str(self.commands):
                return int(status), base64.b64decode(output).decode(errors="replace").strip()

    def run(self, script, seconds=120):
        """The same for a script that has to succeed. Returns what it printed."""
        status, output = self.attempt(script, seconds)
        if status:
            raise BoardError(f"status {status} of: {script[:200]}\n{output[-2000:]}")
        return output

    def until(self, script, seconds, what):
        """Runs a script again and again until it succeeds."""
        def succeeded():
            status, output = self.attempt(script)
            return (output or "yes") if status == 0 else None
        return wait_for(succeeded, seconds, what)

    def put(self, source, target):
        """Copies a small file into the machine."""
        self.run(f"base64 -d >{target} <<'END'\n{base64.encodebytes(source.read_bytes()).decode()}END")

    # The machine from outside

    def ask(self, command, **arguments):
        """One command of QEMU's monitor."""
        self.monitor.send(json.dumps({"execute": command, "arguments": arguments}))
        while True:
            answer = json.loads(self.monitor.next(deadline(60), command))
            if "error" in answer:
                raise BoardError(f"{command}: {answer['error']['desc']}")
            if "return" in answer:
                return answer["return"]

    def plug(self, name, line):
        """Plugs in a USB serial adapter; `line` is the device with the reader behind it."""
        self.ask("chardev-add", id=f"{name}-line",
                 backend={"type": "serial", "data": {"device": str(line)}})
        self.ask("device_add", driver="usb-serial", id=name, chardev=f"{name}-line", bus="usb.0")

    def unplug(self, name):
        """Pulls it out."""
        self.ask("device_del", id=name)
        wait_for(lambda: self._is_free("chardev-remove", id=f"{name}-line"), 30, f"{name} is pulled out")

    def plug_disk(self, name, disk):
        """Plugs in a USB disk."""
        self.ask("blockdev-add", **{"driver": "file", "node-name": name, "filename": str(disk), "cache": {"no-flush": True}})
        self.ask("device_add", driver="usb-storage", id=name, drive=name, bus="usb.0")

    def unplug_disk(self, name):
        self.ask("device_del", id=name)
        wait_for(lambda: self._is_free("blockdev-del", **{"node-name": name}), 30, f"{name} is pulled out")

    def _is_free(self, command, **arguments):
        try:
            self.ask(command, **arguments)
            return True
        except BoardError:
            return False


def copy_of(disk, place, name="disk.img"):
    """A copy of a disk that a case may write, holes and all."""
    target = pathlib.Path(place) / name
    subprocess.run(["cp", "--sparse=always", "--reflink=auto", str(disk), str(target)], check=True)
    os.chmod(target, 0o600)
    return target
