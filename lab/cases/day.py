"""As many openings in ten minutes as a door has in a day: memory, descriptors and threads stay as they are."""

import json
import time

from parts import install_with_reader, main_process

SECONDS = 3600
OPENINGS = 2000      # of a day: one every 43 seconds
WARM = 500           # first, until all that is kept once is there
MOST_ALLOCATED = 512 # kB more; a leak of 350 bytes at each opening is seen
MOST_RESIDENT = 5120 # kB more: the recording of the line has its 4 MiB from the start, and fills them as time goes by

# By the exit button and by cards, with a look at the state and a change of a setting now and then, as people do.
OPEN = r"""
for turn in $(seq {first} {last}); do
  achost rex >/dev/null || exit 1
  [ $((turn % 10)) != 0 ] || achost status >/dev/null
  [ $((turn % 20)) != 0 ] || achost config set host.door_open_time=$((20 + turn % 40)) >/dev/null
done
"""
FOOTPRINT = "cd /proc/{} && awk '/^VmRSS|^Threads/ {{ print $2 }}' status && ls fd | wc -l"


def run(case):
    board = case.board
    board.start()
    install_with_reader(case)
    board.run("achost config set host.door_open_time=20 uhf.read_interval=100 host.away_time=0 && achost card add 1 --user 7")
    process, openings = main_process(board), max(case.times(OPENINGS), WARM + 1)
    began = time.monotonic()
    board.run(OPEN.format(first=1, last=WARM), 3600)
    warm = footprint(board, process)
    case.see(f"{WARM} openings: {told(warm)}")
    board.run(OPEN.format(first=WARM + 1, last=openings), 3600)
    end = footprint(board, process)
    case.see(f"{openings} openings, in {time.monotonic() - began:.0f} s: {told(end)}")
    case.same(main_process(board), process, "the service's process")
    opened, asked = (int(board.run(f"achost journal --kind {kind} --json | wc -l", 300)) for kind in ("opening", "exit_request"))
    case.expect(asked >= openings, f"the journal has {opened} openings, for {asked} requests and the cards")
    allocated, resident, *others = [late - early for late, early in zip(end, warm)]
    case.expect(allocated <= MOST_ALLOCATED and resident <= MOST_RESIDENT and max(others) <= 1, "memory, threads and descriptors are flat")


def footprint(board, process):
    """What is allocated, at the least of some looks, and what is resident, in kB; threads, descriptors."""
    allocated = min(json.loads(board.run("achost status --json"))["allocated"] for _ in range(5))
    return [allocated // 1024] + [int(value) for value in board.run(FOOTPRINT.format(process)).split()]


def told(seen):
    return "{} kB allocated, {} kB resident, {} threads, {} descriptors".format(*seen)
