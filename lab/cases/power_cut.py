"""The power goes at a random moment under load: it boots, the stores are whole, nothing that was shown is lost."""

import contextlib
import dataclasses
import datetime
import json
import shlex
import time

from board import Board, BoardError, copy_of, wait_for
from parts import Watch, install_with_reader, journal, until_reading
from write_log import rebuild

SECONDS = 14400
CUTS_OF_A_LIFE = 10
ON_DISK_AFTER = 0.05  # seconds after which an opening is on the disk at the latest
A_WHILE = 100         # entries
SAME_MOMENT = 0.25    # seconds between an event and its entry: less than two readings of one card are apart

# People come and go, somebody changes users all the time, and something writes that nobody flushes. What passes on the
# bus, what the journal has on the disk, and users that are stored go out, as they are, and what followers complain of.
LOAD = """
achost config set host.door_open_time=20 host.away_time=0
setsid bash -c '{
  achost events --json --type door_state --type identifier_decision 2>&1 &
  achost journal --follow --json --last 1 2>&1 &
  while :; do
    n=$((n + 1)); user=$((n % 50 + 10))
    achost rex >&2
    ! achost user put $user --name "Visitor $n" >&2 || echo "{\\"user\\":$user,\\"visitor\\":$n}"
  done
} >/dev/virtio-ports/stream' >/dev/null 2>&1 &
setsid bash -c 'while :; do dd if=/dev/urandom of=/var/tmp/noise bs=16k count=4 conv=notrunc oflag=direct; sleep 0.05; done' >/dev/null 2>&1 &
"""
MOUNT = """
disk=$(ls /dev/disk/by-id/usb-*) && mount "$disk" /mnt &&
mount -t proc proc /mnt/proc && mount -t devtmpfs dev /mnt/dev && mount -t devpts pts /mnt/dev/pts && mount -t tmpfs run /mnt/run
"""
UMOUNT = "umount --recursive /mnt"
# As the daemon goes on after the cut, where there is no reader and no service.
GO_ON = """
cd / && timeout 120 setpriv --reuid achost --regid achost --init-groups \
  achost run --state /var/lib/achost --simulate --seconds 2 >/run/output 2>&1 || { tail -5 /run/output; exit 1; }
"""


@dataclasses.dataclass
class Shown:
    """What had left the machine before its end."""
    entries: dict   # of the journal, by number
    events: list    # of the bus
    visitors: dict  # by user, the last that was stored
    complaints: list

    def __init__(self, lines):
        said = [json.loads(line) for line in lines if line.startswith("{") and line.endswith("}")]
        self.entries = {line["number"]: line for line in said if "kind" in line}
        self.events = [line for line in said if "message" in line]
        self.visitors = {line["user"]: line["visitor"] for line in said if "visitor" in line}
        self.complaints = [line for line in lines if line.startswith("achost")]


@dataclasses.dataclass
class Cut:
    shown: Shown
    lost: int    # writes that the disk had not kept
    age: float   # seconds, of the oldest event that is not in the journal

    def told(self):
        shown = self.shown
        return (f"{len(shown.entries)} entries, {len(shown.events)} events and {len(shown.visitors)} users had been shown, {self.lost} "
                f"writes were lost; all stores whole, no event is missing that was older than {1000 * self.age:.0f} ms")


class Looker:
    """A machine beside that looks at what a disk would have kept: its kernel mends it with its journal."""

    def __init__(self, case):
        place = case.place / "look"
        place.mkdir()
        self.board = Board(place, case.board.kernel, case.board.initrd, copy_of(case.disk, place), None, case.board.accelerator)
        self.board.start()

    @contextlib.contextmanager
    def at(self, disk):
        self.board.plug_disk("cut", disk)
        self.board.until(MOUNT, 120, "the disk as it was kept can be mounted")
        yield self
        self.board.run(UMOUNT)
        self.board.unplug_disk("cut")

    def run(self, script, seconds=120):
        return self.board.run(f"chroot /mnt bash -c {shlex.quote(script)}", seconds)


def run(case):
    cuts, lives, looker = [], [], Looker(case)
    try:
        begin(case)
        install_with_reader(case)
        while len(cuts) < case.times(20):
            cuts += live(case, len(cuts), min(CUTS_OF_A_LIFE, case.times(20) - len(cuts)), looker)
            lives.append(cuts[-1].shown.entries)
    finally:
        looker.board.stop()
    everything = {entry["number"]: entry for entry in journal(case.board)}
    for life in lives:
        expect_same(life, everything, "entries of a life long ago that are not there at the end, or are others")
    case.see(f"{len(cuts)} cuts, {len(lives)} boots: none of {sum(len(life) for life in lives)} entries that had been shown was lost or "
             f"changed, nor any of {sum(len(cut.shown.visitors) for cut in cuts)} users; {sum(cut.lost for cut in cuts)} writes "
             f"were lost; the oldest event that was not kept was {1000 * max(cut.age for cut in cuts):.0f} ms old")


def begin(case):
    """Boots with a log of what is written from now on; after.img is the disk as it was before that."""
    case.board.stop()
    log_of(case).write_bytes(b"")
    copy_of(case.disk, case.place, "after.img")
    case.board.start(write_log=log_of(case))


def log_of(case):
    return case.place / "writes.log"


def live(case, done, count, looker=None):
    """Under load until the power has gone so often. At all but the last cut the machine stands still, and another one looks
    at what its disk would have kept; the last one ends it, and it boots again."""
    cuts = []
    watch = Watch(case.board)
    case.board.run(LOAD)
    wait_for(lambda: len(watch.lines) >= 20, 600, "the load is there")
    for turn in range(count):
        time.sleep(case.chance.uniform(0, 10))
        until_a_write(log_of(case))
        with case.board.frozen():
            watch.has_all()
            if turn < count - 1:
                seen = look_beside(case, watch, looker)
            else:
                case.board.cut()
        if turn == count - 1:
            seen = boot_again(case, watch)
        if cuts and len(seen.shown.entries) == len(cuts[-1].shown.entries):
            raise BoardError(f"no entry was shown since the cut before: {seen.shown.complaints or 'and nobody complains'}; "
                             f"{case.board.run('ps -eo pid,stat,wchan:30,args | grep [a]chost')}")
        cuts.append(seen)
        case.expect(seen.age <= ON_DISK_AFTER, f"cut {done + turn + 1}: {seen.told()}")
    return cuts


def look_beside(case, watch, looker):
    """What the disk of a machine that stands still would have kept."""
    shown = shown_by(case, watch)
    disk = copy_of(case.place / "after.img", case.place, "cut.img")
    lost = rebuild(disk, log_of(case), case.chance)[2]
    with looker.at(disk) as there:
        age = holds(there, shown)
        there.run(GO_ON, 180)
        goes_on(there, shown)
    return Cut(shown, lost, age)


def boot_again(case, watch):
    """What the disk of a machine that was ended has kept, and that it boots from it."""
    watch.stop()
    case.board.stop()
    shown = shown_by(case, watch)
    lost = rebuild(case.place / "after.img", log_of(case), case.chance)[2]
    (case.place / "after.img").rename(case.disk)
    begin(case)
    age = holds(case.board, shown)
    case.board.plug("reader", case.readers[0].line)
    until_reading(case)
    goes_on(case.board, shown)
    return Cut(shown, lost, age)


def shown_by(case, watch):
    lines = [line for _, line in watch.lines]
    (case.place / "stream.log").write_text("\n".join(lines))
    shown = Shown(lines)
    case.same(bool(shown.entries and shown.events and shown.visitors), True, "whether anything had been shown")
    return shown


def until_a_write(log):
    """Waits for one that is likely not flushed yet: most of the time all is."""
    size, end = log.stat().st_size, time.monotonic() + 60
    while log.stat().st_size == size and time.monotonic() < end:
        time.sleep(0.0005)


def holds(there, shown):
    """Looks at what is stored after the cut, before the host goes on. Returns the age of the oldest event that is missing."""
    there.run("achost check", 300)
    kept = entries_since(there, shown)
    expect_same(shown.entries, kept, "entries that had been shown and are not there, or are others")
    visitors = {user["user"]: user["name"] for user in map(json.loads, there.run("achost user list --json", 300).splitlines())}
    for user, visitor in shown.visitors.items():
        name = visitors.get(user, "nobody 0")
        if int(name.rpartition(" ")[2]) < visitor:
            raise BoardError(f"user {user} was stored as Visitor {visitor}, and is {name}")
    times = {}
    for entry in kept.values():
        times.setdefault(of_entry(entry), []).append(at(entry))
    newest = max(at(event) for event in shown.events)
    missing = [event for event in shown.events
               if not any(abs(when - at(event)) < SAME_MOMENT for when in times.get(of_event(event), []))]
    return max((newest - at(event) for event in missing), default=0.0)


def goes_on(there, shown):
    """What came after the cut has used no number again."""
    if journal(there, "--last 1")[0]["number"] <= max(shown.entries):
        raise BoardError("nothing came after the cut that would show whether numbers are used again")
    expect_same(shown.entries, entries_since(there, shown), "entries whose numbers were used again after the cut")


def entries_since(there, shown):
    """What the journal has since the first that was shown, and of a while before, by number: events are shown sooner."""
    return {entry["number"]: entry for entry in journal(there, f"--after {max(min(shown.entries) - A_WHILE, 0)}")}


def expect_same(shown, kept, what):
    others = [number for number, entry in shown.items() if kept.get(number) != entry]
    if others:
        raise BoardError(f"{what}: {others[:20]}")


def of_event(event):
    """What tells two events apart that happened at one moment."""
    fields = event["fields"]
    if event["message"] == "door_state":
        return "opening" if fields["open"] else "closing"
    return fields["value"]


def of_entry(entry):
    """The same of the journal's entry about it."""
    return entry["card"] if entry["kind"] == "identification" else entry["kind"]


def at(line):
    return datetime.datetime.fromisoformat(line["time"]).timestamp()
