"""Runs cases on the virtual board: each in a machine of its own, with a copy of the disk, and tells what was seen."""

import argparse
import importlib
import pathlib
import random
import shutil
import signal
import subprocess
import sys
import tempfile
import time

import board
from board import ENDS_WITH_US, Board, BoardError, Unusable, copy_of

HERE = pathlib.Path(__file__).resolve().parent
NEXT_VERSION = "999.0.0"
FAILED, SKIPPED = 1, 77
SLOWER = 3      # times, is an emulated machine allowed to be
ROOM = 3 << 30  # bytes for a case's disks


class Reader:
    """A simulated reader; `line` is the device that an adapter leads to."""

    def __init__(self, program, place):
        self.process = subprocess.Popen(ENDS_WITH_US + [program], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        stderr=subprocess.DEVNULL, text=True, bufsize=1, cwd=place)
        self.line = self.process.stdout.readline().strip()

    def say(self, command):
        if self.process.poll() is not None:
            raise BoardError(f"the simulated reader has ended with status {self.process.returncode}")
        self.process.stdin.write(command + "\n")

    def stop(self):
        self.process.kill()
        self.process.wait()


class Case:
    """What a case has to do with: its board, readers, chance, and a way to say what it has seen."""

    def __init__(self, name, options, place):
        self.name, self.options, self.place = name, options, place
        self.chance = random.Random(options.seed)
        self.readers = []
        image = options.image
        if shutil.disk_usage(place).free < ROOM:
            raise Unusable(f"{place.parent} has less than {ROOM >> 30} GiB of room; TMPDIR says another place")
        self.disk = copy_of(image / "disk.img", place)
        self.board = Board(place, image / "kernel", image / "initrd", self.disk, options.things, options.accelerator)

    def reader(self):
        """A simulated reader with three tags in its field."""
        self.readers.append(Reader(self.options.build / "bin/uhf-sim", self.place))
        return self.readers[-1]

    def times(self, usual):
        """How often to do what the case does: as the command line says, else as usual."""
        return self.options.times or usual

    def see(self, text):
        print(f"  {time.monotonic() - self.began:6.1f} s  {text}", flush=True)

    def expect(self, holds, text):
        """Something that must be so; it is told when it is."""
        if not holds:
            raise BoardError(f"not so: {text}")
        self.see(text)

    def same(self, seen, wanted, what):
        """The same for a value, which is told when it is another one."""
        if seen != wanted:
            raise BoardError(f"{what}: {wanted!r} was to be seen, {seen!r} was")

    def run(self, module):
        """Does it. What the machine outside could not do is an Unusable, what was not as it should be another BoardError."""
        self.began = time.monotonic()
        signal.signal(signal.SIGALRM, self._too_long)
        signal.alarm(module.SECONDS * self.options.patience)
        try:
            module.run(self)
        except BoardError as error:
            print(f"  {'cannot be seen' if isinstance(error, Unusable) else 'FAILED'}   {error}\n{self._traces()}", flush=True)
            raise
        finally:
            signal.alarm(0)
            self.board.stop()
            for reader in self.readers:
                reader.stop()

    @staticmethod
    def _too_long(*_):
        raise Unusable("the case takes far longer than it should: this machine is too slow, or too busy; --patience allows it more")

    def _traces(self):
        """The end of the console, and of the service's log where the machine still answers."""
        console = self.board.console.read_text(errors="replace") if self.board.console.exists() else ""
        text = "  the console's last lines:\n" + "\n".join(console.splitlines()[-25:])
        try:
            return text + "\n  the service's:\n" + self.board.attempt("journalctl -u achost -o short-monotonic -n 25", 30)[1]
        except (BoardError, OSError, AttributeError):
            return text


def make_things(build, disk):
    """A disk with what cases need: the packages, the same as the next version, for upgrades, and a probe."""
    with tempfile.TemporaryDirectory() as name:
        place = pathlib.Path(name)
        packages = place / "packages"
        made = subprocess.run(["flock", "cpack.lock", "cpack", "-B", str(packages)], cwd=build, capture_output=True, text=True)
        if made.returncode:
            raise Unusable(f"the packages could not be made: {made.stdout[-500:]}{made.stderr[-500:]}")
        shutil.rmtree(packages / "_CPack_Packages")
        (place / "next").mkdir()
        for package in packages.glob("*.deb"):
            next_version(package, place / "tree", place / "next" / package.name)
        shutil.rmtree(place / "tree")
        shutil.copy(HERE / "probe", place)
        subprocess.run(["truncate", "-s", "64M", str(disk)], check=True)
        subprocess.run(["mke2fs", "-q", "-F", "-t", "ext4", "-d", str(place), str(disk)], check=True)


def next_version(package, tree, target):
    """The same package as a version to come."""
    shutil.rmtree(tree, ignore_errors=True)
    subprocess.run(["dpkg-deb", "--raw-extract", str(package), str(tree)], check=True)
    control = tree / "DEBIAN/control"
    lines = control.read_text().splitlines()
    old = next(line.split()[1] for line in lines if line.startswith("Version:"))
    changed = [f"Version: {NEXT_VERSION}" if line.startswith("Version:") else line.replace(f"(= {old})", f"(= {NEXT_VERSION})")
               for line in lines]
    control.write_text("\n".join(changed) + "\n")
    subprocess.run(["dpkg-deb", "--build", "--root-owner-group", str(tree), str(target)], check=True, capture_output=True)


def usable_accelerator(image):
    """"kvm" where a kernel really begins on it, which a /dev/kvm alone does not mean; "tcg" elsewhere."""
    known = image / "accelerator"
    if known.exists():
        return known.read_text().strip()
    answer = "tcg"
    if pathlib.Path("/dev/kvm").exists():
        try:
            # Without a root it panics within a second or two, and QEMU ends.
            subprocess.run(["qemu-system-x86_64", "-nodefaults", "-display", "none", "-M", "q35", "-accel", "kvm", "-cpu", "max",
                            "-m", "256", "-no-reboot", "-kernel", str(image / "kernel"), "-append", "panic=-1"],
                           timeout=20, check=True, capture_output=True)
            answer = "kvm"
        except (subprocess.TimeoutExpired, subprocess.CalledProcessError):
            pass
    known.write_text(answer + "\n")
    return answer


def arguments():
    known = sorted(path.stem for path in (HERE / "cases").glob("*.py"))
    parser = argparse.ArgumentParser(prog="scripts/lab", description=__doc__, epilog=f"Cases: {', '.join(known)}")
    parser.add_argument("cases", nargs="*", metavar="CASE", help="what to run (default: all)")
    parser.add_argument("--build", type=pathlib.Path, required=True, help=argparse.SUPPRESS)
    parser.add_argument("--image", type=pathlib.Path, required=True, help=argparse.SUPPRESS)
    parser.add_argument("--times", type=int, help="how often to do what a case does again and again")
    parser.add_argument("--seed", type=int, default=1, help="seed of all chance (default: 1)")
    parser.add_argument("--patience", type=int, default=1, help="allow so many times the time, for a case and for what it measures")
    parser.add_argument("--accelerator", choices=["kvm", "tcg"], help="default: kvm where it works")
    parser.add_argument("--keep", type=pathlib.Path, help="directory that gets what a case leaves")
    options = parser.parse_args()
    for case in options.cases:
        if case not in known:
            parser.error(f"no case is called {case}: one of {', '.join(known)}")
    options.cases = options.cases or known
    return options


def main():
    options = arguments()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))  # with its files removed
    options.build, options.image = options.build.resolve(), options.image.resolve()
    with tempfile.TemporaryDirectory(prefix="board.") as scratch:
        options.things = pathlib.Path(scratch) / "things.img"
        make_things(options.build, options.things)
        return run_all(options)


def run_all(options):
    """All cases, each in a machine of its own. Returns the worst of what came out."""
    options.accelerator = options.accelerator or usable_accelerator(options.image)
    board.patience = options.patience * (SLOWER if options.accelerator == "tcg" else 1)
    sys.path.insert(0, str(HERE / "cases"))
    outcomes = {0}
    for name in options.cases:
        module = importlib.import_module(name)
        began = time.monotonic()
        print(f"{name}: {module.__doc__.strip().splitlines()[0]}", flush=True)
        with tempfile.TemporaryDirectory(prefix="board.") as scratch:
            outcome = run_one(name, module, options, pathlib.Path(scratch))
        outcomes.add(outcome)
        print(f"{name}: {SAID[outcome]}, {time.monotonic() - began:.0f} s ({options.accelerator})", flush=True)
    return next(outcome for outcome in (FAILED, SKIPPED, 0) if outcome in outcomes)


SAID = {0: "as it should be", FAILED: "FAILED", SKIPPED: "skipped, as this machine could not show it"}


def run_one(name, module, options, place):
    try:
        Case(name, options, place).run(module)
        return 0
    except BoardError as error:
        if options.keep:
            shutil.copytree(place, options.keep / name, dirs_exist_ok=True, ignore_dangling_symlinks=True,
                            ignore=lambda _, names: [each for each in names if each in ("agent", "monitor", "stream", "look")])
        return SKIPPED if isinstance(error, Unusable) else FAILED


if __name__ == "__main__":
    try:
        sys.exit(main())
    except (Unusable, OSError, subprocess.CalledProcessError) as problem:
        print(f"lab: skipped, as this machine could not show it: {problem}", file=sys.stderr)
        sys.exit(SKIPPED)
    except KeyboardInterrupt:
        sys.exit(130)
