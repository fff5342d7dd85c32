"""The power goes at a random moment under load: it boots, the stores are whole, nothing that was shown is lost."""

import datetime
import json
import time

from board import copy_of, wait_for
from parts import Watch, install_with_reader, journal, until_reading
from write_log import rebuild

SECONDS = 7200
# An opening is on the disk 50 ms later at the most. An emulated processor takes its time for that, too.
ON_DISK_AFTER = {"kvm": 0.05, "tcg": 1.0}

SAME_MOMENT = 0.25  # seconds between an event and its entry: less than two readings of one card are apart

# People come and go, somebody changes users all the time, and something writes that nobody flushes. What passes on the
# bus and what the journal has on the disk go out, as they do.
LOAD = """
setsid bash -c '{
  achost events --json --type door_state --type identifier_decision & achost journal --follow --json --last 1 & wait
} >/dev/virtio-ports/stream' >/dev/null 2>&1 &
setsid bash -c 'while :; do n=$((n + 1)); achost rex; achost user put $((n % 50 + 10)) --name "Visitor $n"; done' >/dev/null 2>&1 &
setsid bash -c 'while :; do dd if=/dev/urandom of=/var/tmp/noise bs=16k count=4 conv=notrunc oflag=direct; sleep 0.05; done' >/dev/null 2>&1 &
"""


def run(case):
    case.board.start()
    reader = install_with_reader(case)
    cuts = [cut_once(case, reader, turn) for turn in range(case.times(5))]
    case.see(f"{len(cuts)} cuts: {sum(shown for shown, _, _ in cuts)} entries had been shown and none was lost or changed; "
             f"{sum(lost for _, lost, _ in cuts)} writes were lost; the oldest event that was not kept was "
             f"{1000 * max(age for _, _, age in cuts):.0f} ms old")


def cut_once(case, reader, turn):
    """A life of the machine under load, its end, and the beginning of the next. Tells how much had been shown, the
    writes that were lost, and the age of the oldest event that is not in the journal afterwards."""
    board, log = case.board, case.place / "writes.log"
    if board.running:
        board.power_off()
    board.stop()
    after = copy_of(case.disk, case.place, "after.img")
    log.write_bytes(b"")
    board.start(write_log=log)
    board.plug("reader", reader.line)
    until_reading(case)
    watch = Watch(board)
    board.run(LOAD)
    wait_for(lambda: len(watch.lines) >= 20, 300, "the load is there")
    time.sleep(case.chance.uniform(0, 10))
    until_a_write(log)
    board.cut()
    watch.stop()
    board.stop()
    sure, kept, lost = rebuild(after, log, case.chance)
    after.rename(case.disk)

    (case.place / "stream.log").write_text("\n".join(line for _, line in watch.lines))
    lines = [json.loads(line) for _, line in watch.lines if line.startswith("{") and line.endswith("}")]
    shown = {line["number"]: line for line in lines if "number" in line}
    events = [line for line in lines if "message" in line]
    case.expect(shown and events,
                f"cut {turn + 1}: {len(shown)} entries and {len(events)} events had been shown; "
                f"{sure} writes were sure, {kept} of the {kept + lost} later ones were kept")
    board.start()
    age = holds(case, shown, events)
    board.plug("reader", reader.line)
    until_reading(case)
    anew = {entry["number"]: entry for entry in journal(board)}
    case.same([number for number, entry in shown.items() if anew.get(number) != entry], [],
              "numbers that were used again once the reader was back")
    return len(shown), lost, age


def until_a_write(log):
    """Waits for one that is likely not flushed yet: most of the time all is."""
    size, end = log.stat().st_size, time.monotonic() + 60
    while log.stat().st_size == size and time.monotonic() < end:
        time.sleep(0.0005)


def holds(case, shown, events):
    """Looks at what is stored after the cut, before the host has a reader again."""
    board = case.board
    board.run("achost check", 300)
    kept = {entry["number"]: entry for entry in journal(board)}
    case.same([number for number, entry in shown.items() if kept.get(number) != entry], [],
              "entries that had been shown and are not there, or are others")
    times = [(of_entry(entry), at(entry)) for entry in kept.values()]
    newest = max(at(event) for event in events)
    missing = [event for event in events if not any(
        what == of_event(event) and abs(when - at(event)) < SAME_MOMENT for what, when in times)]
    oldest = max((newest - at(event) for event in missing), default=0.0)
    limit = ON_DISK_AFTER[case.options.accelerator] * case.options.patience
    case.expect(oldest <= limit, f"booted, all stores whole; no event is missing that was older than {1000 * oldest:.0f} ms")
    return oldest


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
