"""As many openings in ten minutes as a door has in a day: memory, descriptors and threads stay as they are."""

import json
import pathlib

from parts import install_with_reader, main_process

SECONDS = 3600
OPENINGS = 2000      # of a day: one every 43 seconds
APART = 0.25         # seconds, which makes less than ten minutes
LOOKS = 4            # at equal distances; at the first one all that is kept once is there, but for the journal's pages
PAGES = 512          # kB of them stay in memory, as soon as the journal has so many
MOST_ALLOCATED = 256 # kB more than that; a leak of 0.5 kB at each opening is seen for sure
MOST_RESIDENT = 5632 # kB more: those pages, and the recording of the line, which fills its 4 MiB as time goes by

PRESSES = pathlib.Path(__file__).resolve().parent.parent / "presses"
FOOTPRINT = "cd /proc/{} && awk '/^VmRSS|^Threads/ {{ print $2 }}' status && ls fd | wc -l"


def run(case):
    board = case.board
    board.start()
    install_with_reader(case)
    board.run("achost config set host.door_open_time=20 uhf.read_interval=1000 host.away_time=0 && achost card add 1 --user 7")
    board.put(PRESSES, "/run/presses")
    process, openings = main_process(board), max(case.times(OPENINGS), LOOKS)
    looks, seconds = [], 0
    for look in range(LOOKS):
        first, last = (openings * each // LOOKS for each in (look, look + 1))
        seconds += open_door(board, first + 1, last)
        looks.append(footprint(board, process))
        case.see(f"{last} presses in {seconds} s: " + ", ".join(f"{value} {name}" for name, value in looks[-1].items()))
    case.same(main_process(board), process, "the service's process")
    opened, asked = (int(board.run(f"achost journal --kind {kind} --json | wc -l", 300)) for kind in ("opening", "exit_request"))
    case.expect(asked == openings <= opened, f"the journal has {asked} presses and, with the cards', {opened} openings")
    allocated, resident, *others = (looks[-1][name] - looks[0][name] for name in looks[0])
    case.expect(allocated <= PAGES + MOST_ALLOCATED and resident <= MOST_RESIDENT and max(others) <= 1,
                f"{allocated} kB more are allocated, {resident} kB more resident; threads and descriptors are flat")


def open_door(board, first, last):
    """Opens it so often. Returns the seconds it took by the board's clock."""
    return int(board.run(f"began=$(date +%s) && perl /run/presses {first} {last} {APART} && echo $(($(date +%s) - began))", 3600))


def footprint(board, process):
    """What the process has; of what is allocated the least of some looks."""
    allocated = min(json.loads(board.run("achost status --json"))["allocated"] for _ in range(5))
    resident, threads, descriptors = map(int, board.run(FOOTPRINT.format(process)).split())
    return {"kB allocated": allocated // 1024, "kB resident": resident, "threads": threads, "descriptors": descriptors}
